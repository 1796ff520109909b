#include "reader.h"

#include <algorithm>
#include <fstream>
#include <new>
#include <sstream>
#include <unordered_map>

#include "boundary/table.h"

namespace kesta {
namespace recorder {
namespace {

const unsigned char* BytesOf(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::uint64_t LengthAt(const unsigned char* frame) {
    return (std::uint64_t{frame[1]} << 24) | (std::uint64_t{frame[2]} << 16) |
           (std::uint64_t{frame[3]} << 8) | std::uint64_t{frame[4]};
}

void CheckHead(const std::string& bytes) {
    const std::size_t known = std::min(bytes.size(), kVersionAt);
    if (known < kVersionAt || std::memcmp(bytes.data(), kMagic, kVersionAt) != 0) {
        throw BadRecording("this is no recording");
    }
    if (bytes.size() > kVersionAt && BytesOf(bytes)[kVersionAt] != kVersion) {
        throw BadRecording(
            "this recording has version " + std::to_string(BytesOf(bytes)[kVersionAt]) +
            " of the format; this program reads version " + std::to_string(kVersion));
    }
    if (bytes.size() < kHeadSize) throw BadRecording("this recording is cut within its head");
}

// A record has five levels at most.
constexpr int kMostLevels = 16;

// Builds a record's value. The parser would follow a value that is nested more deeply until its
// stack ends.
class Builder : public nlohmann::detail::json_sax_dom_parser<Json> {
    using Base = nlohmann::detail::json_sax_dom_parser<Json>;

public:
    explicit Builder(Json& value) : Base(value, false) {}

    bool start_array(std::size_t size) { return Deeper() && Base::start_array(size); }
    bool start_object(std::size_t size) { return Deeper() && Base::start_object(size); }
    bool end_array() { return --levels_, Base::end_array(); }
    bool end_object() { return --levels_, Base::end_object(); }

private:
    bool Deeper() { return ++levels_ <= kMostLevels; }

    int levels_ = 0;
};

void Require(bool sensible) {
    if (!sensible) throw BadRecording("a record of an unknown kind");
}

std::uint64_t NumberAt(const Json& record, std::size_t place) {
    const Json& number = record.at(place);
    Require(number.is_number_unsigned());
    return number;
}

// One of those that docs/recording-format.md lists.
bool IsValue(const Json& kept) {
    if (kept.is_array()) return std::all_of(kept.begin(), kept.end(), IsValue);
    return kept.is_null() || kept.is_boolean() || kept.is_number_integer() || kept.is_binary();
}

Json ValueAt(const Json& record, std::size_t place) {
    Require(IsValue(record.at(place)));
    return record.at(place);
}

// Puts records together to calls.
class Assembly {
public:
    explicit Assembly(Recording& recording) : recording_(recording) {}

    // Throws Json's exceptions where a record is not what its kind says.
    void Take(const Json& record) {
        switch (NumberAt(record, 0)) {
            case kDescription:
                return Describe(record.at(1));
            case kEnter:
                return Enter(record);
            case kLeave:
                return Leave(record);
            case kProcess:
                recording_.processes.push_back({NumberAt(record, 1), NumberAt(record, 2),
                                                NumberAt(record, 3), NumberAt(record, 4),
                                                record.at(5), record.at(6)});
                return;
            case kLibrary:
                recording_.libraries.push_back({NumberAt(record, 1), record.at(2), record.at(3),
                                                NumberAt(record, 4), record.at(5)});
                return;
            default:
                throw BadRecording("a record of an unknown kind");
        }
    }

    void Finish() {
        auto& calls = recording_.calls;
        std::sort(calls.begin(), calls.end(),
                  [](const Call& one, const Call& other) { return one.number < other.number; });
    }

private:
    // The first that is sensible counts: calls go by its functions.
    void Describe(const Json& description) {
        Require(recording_.functions.empty());
        for (const char* const number : {"format", "wall", "time"}) {
            Require(description.value(number, Json(0U)).is_number_unsigned());
        }
        Require(description.value("ukey", Json("")).is_string());
        Recording read;
        read.full = description.at("full");
        for (const Json& function : description.at("functions")) {
            Function one{function.at(0), function.at(1), {}};
            for (const Json& parameter : function.at(2)) {
                one.parameters.push_back({parameter.at(0), parameter.at(1)});
            }
            read.functions.push_back(std::move(one));
        }
        recording_.description = description;
        recording_.full = read.full;
        recording_.functions = std::move(read.functions);
    }

    void Enter(const Json& record) {
        Call call;
        call.number = NumberAt(record, 1);
        call.parent = NumberAt(record, 2);
        call.process = NumberAt(record, 3);
        call.thread = NumberAt(record, 4);
        call.start = NumberAt(record, 5);
        call.function = NumberAt(record, 6);
        call.arguments = ValueAt(record, 7);
        if (call.function >= recording_.functions.size() || !call.arguments.is_array() ||
            call.arguments.size() != recording_.functions[call.function].parameters.size()) {
            throw BadRecording("a call of no function");
        }
        places_.emplace(call.number, recording_.calls.size());
        recording_.calls.push_back(std::move(call));
    }

    void Leave(const Json& record) {
        Call& call = recording_.calls.at(places_.at(NumberAt(record, 1)));
        if (!record.at(6).is_array() || record.at(6).size() != call.arguments.size()) {
            throw BadRecording("outputs of another function");
        }
        const std::uint64_t how = NumberAt(record, 3);
        Require(how <= kCancelled);
        Require(record.at(5).is_null() || record.at(5).is_number_integer());
        Json result = ValueAt(record, 4), outputs = ValueAt(record, 6);
        call.end = NumberAt(record, 2);
        call.how = static_cast<int>(how);
        call.result = std::move(result);
        call.lastError = record.at(5);
        call.outputs = std::move(outputs);
    }

    Recording& recording_;
    std::unordered_map<std::uint64_t, std::size_t> places_;
};

// The next place of a record at or behind at: zeros are no records.
std::size_t SkipZeros(const std::string& bytes, std::size_t at) {
    while (at + kAlignment <= bytes.size()) {
        std::uint64_t word;
        std::memcpy(&word, bytes.data() + at, sizeof word);
        if (word != 0) return at;
        at += kAlignment;
    }
    return bytes.size();
}

void TakeRecord(const unsigned char* content, std::uint64_t length, Assembly& assembly,
                Recording& recording) {
    Json record;
    Builder builder(record);
    try {
        const bool read =
            Json::sax_parse(content, content + length, &builder, Json::input_format_t::msgpack);
        if (!read || !record.is_array()) throw BadRecording("no array");
        assembly.Take(record);
    } catch (const std::bad_alloc&) {
        throw;  // that is no damage
    } catch (const std::exception&) {
        ++recording.damaged;
    }
}

}  // namespace

std::string Recording::KeyBytes() const {
    const auto key = description.find("key");
    if (!full || key == description.end() || !key->is_binary()) return {};
    return {key->get_binary().begin(), key->get_binary().end()};
}

Recording ParseRecording(const std::string& bytes) {
    CheckHead(bytes);
    Recording recording;
    State state;
    std::memcpy(&state, bytes.data() + sizeof kMagic, sizeof state);
    recording.lost = state.lost;
    Assembly assembly(recording);
    std::size_t at = kHeadSize;
    while ((at = SkipZeros(bytes, at)) < bytes.size()) {
        const unsigned char* const frame = BytesOf(bytes) + at;
        const std::uint64_t length = LengthAt(frame);
        if (frame[0] != kExtension || frame[5] > kWhole) {
            ++recording.damaged;
            at += kAlignment;
        } else if (length > bytes.size() - at - kFrameSize) {
            ++recording.unfinished;  // the file ends within it
            break;
        } else {
            if (frame[5] == kUnfinished) {
                ++recording.unfinished;
            } else {
                TakeRecord(frame + kFrameSize, length, assembly, recording);
            }
            at += Framed(length);
        }
    }
    assembly.Finish();
    if (recording.functions.empty()) throw BadRecording("this recording is cut within its head");
    return recording;
}

Recording ReadRecording(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    if (!file || !(bytes << file.rdbuf())) throw BadRecording("cannot be read");
    return ParseRecording(bytes.str());
}

Json DescribeFunctions() {
    Json functions = Json::array();
    for (std::size_t number = 0; number < kFunctionCount; ++number) {
        const Row& row = RowOf(number);
        Json parameters = Json::array();
        for (std::size_t i = 0; i < CountOf(row); ++i) {
            parameters.push_back({row.parameters[i].name, NameOf(row.parameters[i].visibility)});
        }
        functions.push_back({row.name, NameOf(BoundaryOf(number)), std::move(parameters)});
    }
    return functions;
}

std::string DescriptionRecord(Json description) {
    const auto bytes =
        Json::to_msgpack(Json::array({static_cast<int>(kDescription), std::move(description)}));
    return {bytes.begin(), bytes.end()};
}

}  // namespace recorder
}  // namespace kesta
