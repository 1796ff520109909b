// A recording as `ukey trace show`, `ukey report` and `ukey replay` read it: refused, or told in
// whole; JSON that others can read; and no answer to a call that a replay makes writes where the
// call has no room.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "command/show.h"
#include "draw.h"
#include "file/layout.h"
#include "fuzz_target.h"
#include "kesta/event_library.h"
#include "kesta/token_library.h"
#include "replay/answer.h"
#include "replay/script.h"

namespace {

using calls::Draw;
using namespace kesta::recorder;

Json AnyValue(Draw& draw, unsigned level = 0) {
    static const std::int64_t numbers[] = {0, 1, -1, 2, 13, 40, 4096, -101, INT64_MIN, INT64_MAX};
    switch (draw.below(level > 20 ? 8 : 11)) {
        case 0:
            return nullptr;
        case 1:
            return draw.of(numbers);
        case 2:
            return draw.next();
        case 3:
            return draw.once_in(2);
        case 4:
            return static_cast<double>(draw.next()) * 1e30;
        case 5:
            return std::string(1 + level % 5, static_cast<char>(draw.below(256)));
        case 6:
        case 7: {
            const std::size_t size = draw.below(9) * std::size_t{40};
            return Json::binary(
                std::vector<std::uint8_t>(size, static_cast<std::uint8_t>(draw.below(256))));
        }
        case 8:
            return {draw.below(9000), Json::binary({1, 2, 3, 4, 5, 6, 7, 8})};
        case 9: {
            Json list = Json::array();
            for (unsigned more = draw.below(5); more > 0; --more) {
                list.push_back(AnyValue(draw, level + 1));
            }
            return list;
        }
        default:
            return {{"text", AnyValue(draw, level + 1)}};
    }
}

// A value for each parameter of a function, or one too many.
Json AnyValues(Draw& draw, std::size_t function) {
    Json values = Json::array();
    const std::size_t count = function < kFunctionCount ? CountOf(RowOf(function)) : 0;
    for (std::size_t i = 0; i < count; ++i) values.push_back(AnyValue(draw));
    if (draw.once_in(20)) values.push_back(nullptr);
    return values;
}

Json Head(bool full) {
    Json head = {{"format", 1},       {"full", full}, {"ukey", "1.0"},
                 {"wall", 170000000}, {"time", 5},    {"functions", DescribeFunctions()}};
    if (full) head["key"] = Json::binary(std::vector<std::uint8_t>(kKeySize, 7));
    return head;
}

Json AnyDescription(Draw& draw) {
    Json head = Head(draw.once_in(2));
    static const char* const fields[] = {"format", "full", "ukey", "wall", "time", "key"};
    if (draw.once_in(2)) head[draw.of(fields)] = AnyValue(draw);
    if (draw.once_in(4)) head["functions"] = Json::array({{"One", "token", Json::array()}});
    return head;
}

// latest: the function that was entered last.
Json AnyRecord(Draw& draw, std::size_t& latest) {
    const unsigned call = 1 + draw.below(4);
    const auto number = [&] { return draw.once_in(30) ? AnyValue(draw) : Json(draw.below(256)); };
    switch (draw.below(12)) {
        case 0:
            return {number(), AnyDescription(draw)};
        case 1:
            return {kProcess, number(), number(), number(), number(), "client", AnyValue(draw)};
        case 2:
            return {kLibrary, number(), "token", AnyValue(draw), number(), "ab"};
        case 3:
            return AnyValue(draw);
        case 4:
        case 5:
        case 6:
        case 7:
            latest = draw.below(kFunctionCount + 2);
            return {kEnter,   call,     number(), number(),
                    number(), number(), latest,   AnyValues(draw, latest)};
        default:
            return {kLeave,
                    call,
                    number(),
                    draw.below(4),
                    AnyValue(draw),
                    draw.once_in(2) ? AnyValue(draw) : Json(),
                    AnyValues(draw, latest)};
    }
}

void Append(std::string& bytes, const std::vector<std::uint8_t>& content, unsigned char type) {
    const std::uint64_t word = FirstWord(content.size(), type, nullptr);
    const std::size_t begin = bytes.size();
    bytes.resize(begin + Framed(content.size()));
    bytes.replace(begin, kFrameSize, reinterpret_cast<const char*>(&word), kFrameSize);
    bytes.replace(begin + kFrameSize, content.size(), reinterpret_cast<const char*>(content.data()),
                  content.size());
}

// A recording of this version that has no calls yet.
std::string Begun(bool full) {
    static const std::vector<std::uint8_t> heads[] = {
        Json::to_msgpack(Json::array({kDescription, Head(false)})),
        Json::to_msgpack(Json::array({kDescription, Head(true)}))};
    std::string bytes(reinterpret_cast<const char*>(kMagic), sizeof kMagic);
    bytes.resize(kHeadSize);
    Append(bytes, heads[full ? 1 : 0], kWhole);
    return bytes;
}

std::string AnyRecording(Draw& draw) {
    std::string bytes = Begun(draw.once_in(2));
    if (draw.once_in(10)) bytes.resize(kHeadSize);
    std::size_t latest = 0;
    while (draw.left() != 0) {
        // Nested as deeply as a file has room for.
        if (draw.once_in(200)) {
            Append(bytes, std::vector<std::uint8_t>(1 << 20, 0x91), kWhole);
        }
        const unsigned char type = draw.once_in(30) ? kUnfinished : kWhole;
        Append(bytes, Json::to_msgpack(AnyRecord(draw, latest)), type);
    }
    if (draw.once_in(8)) bytes.resize(bytes.size() - bytes.size() % 97);
    return bytes;
}

// The first byte says how the others are meant: as a file, as its records, or as choices.
std::string RecordingFrom(const std::uint8_t* data, std::size_t size) {
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] == 'f') return rest;
    if (data[0] == 'r') return Begun(false) + rest;
    Draw draw(data + 1, size - 1);
    return AnyRecording(draw);
}

// A call with memory of its own for each parameter, as small as the function allows.
class OwnCall {
public:
    OwnCall(std::size_t function, std::size_t room) {
        live_.function = function;
        live_.raw = raw_;
        live_.kind = SameText(live_.row().name, "X_ErrorConvert_UOS") ? ResultKind::kText
                                                                      : ResultKind::kNumber;
        for (std::size_t i = 0; i < CountOf(live_.row()); ++i) Give(i, room);
        live_.NoteRoom();
    }
    ~OwnCall() {
        for (char* const text : texts_) delete[] text;
    }
    OwnCall(const OwnCall&) = delete;
    OwnCall& operator=(const OwnCall&) = delete;

    LiveCall& live() { return live_; }

private:
    void Give(std::size_t i, std::size_t room) {
        const Parameter& parameter = live_.row().parameters[i];
        if (parameter.shape == Shape::kNumber) return;
        if (parameter.shape == Shape::kNewText) {
            raw_[i] = reinterpret_cast<std::uint64_t>(&texts_[i]);
            return;
        }
        const std::size_t size = SizeOf(parameter, room);
        memory_[i] = std::make_unique<char[]>(size);
        raw_[i] = reinterpret_cast<std::uint64_t>(memory_[i].get());
        if (parameter.shape == Shape::kLength) {
            *reinterpret_cast<std::uint32_t*>(raw_[i]) = static_cast<std::uint32_t>(room);
        }
    }
    static std::size_t SizeOf(const Parameter& parameter, std::size_t room) {
        switch (parameter.shape) {
            case Shape::kTextOut:
                return parameter.bound == Bound::kSize ? parameter.size : room;
            case Shape::kBytesOut:
                return room;
            case Shape::kNumbersOut:
                return room * sizeof(std::uint32_t);
            case Shape::kDevice:
                return sizeof(_S_DEV_CONFIG);
            case Shape::kEvent:
                return sizeof(VALTO_EVENT_INFO);
            case Shape::kRequest:
                return sizeof(KestaRequestRecord);
            default:
                return sizeof(std::uint64_t);
        }
    }

    LiveCall live_{};
    std::uint64_t raw_[kMostParameters + 1] = {};
    std::unique_ptr<char[]> memory_[kMostParameters];
    char* texts_[kMostParameters] = {};
};

void Replay(const std::string& bytes) {
    static const std::string path =
        std::filesystem::temp_directory_path() / ("fuzz-trace-" + std::to_string(getpid()));
    std::ofstream(path, std::ios::binary) << bytes;
    try {
        const Script script(path);
        for (const Call& call : script.recording().calls) {
            OwnCall live(call.function, call.number * 7 % 50);
            script.Fits(call, live.live());
            const auto difference =
                DifferenceOf(call.arguments, ArgumentsOf(live.live(), script.discretion()),
                             script.FunctionOf(call), script.Exact());
            FUZZ_EXPECT(!difference || !difference->what.empty());
            if (!call.ended() || BoundaryOf(call.function) == Boundary::kExports) continue;
            try {
                AnswerFrom(call, live.live());
            } catch (const BadRecording&) {
            }
        }
    } catch (const BadRecording&) {
    }
    unlink(path.c_str());
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string bytes = RecordingFrom(data, size);
    Recording recording;
    try {
        recording = ParseRecording(bytes);
    } catch (const BadRecording& bad) {
        FUZZ_EXPECT(*bad.what() != '\0');
        return 0;
    }
    std::size_t lines = 0;
    ShowJson(recording, [&lines](const std::string& line) {
        FUZZ_EXPECT(Json::accept(line));
        ++lines;
    });
    FUZZ_EXPECT(lines == 1 + recording.processes.size() + recording.libraries.size() +
                             recording.calls.size());
    ShowText(recording, [](const std::string&) {});
    FUZZ_EXPECT(!ShowPage(recording).empty());
    Replay(bytes);
    return 0;
}
