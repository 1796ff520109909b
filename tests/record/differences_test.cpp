// A thousand recordings, each with one byte other than what the client does: every one is named.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <random>

#include "boundary/table.h"
#include "file/reader.h"
#include "file/writer.h"
#include "replay/replayer.h"

namespace {

using namespace kesta::recorder;

// A client, its library and the token library: entry points get the exports' own buffers, so that
// what a token call writes is what the export hands out.
struct Stage {
    char serial[16] = "SK0001";
    char label[512] = "";
    int labelLength = 512;
    int labelResult = 0;
    char text[32] = "pay 12.50 to 4711", warning[16] = "pay 12.50?";
    char signature[256] = "";
    unsigned signatureLength = 256;
    int signResult = 0, warningResult = 0;
    char certificate[64] = "MIIBsigningcertificate", key[64] = "escrowed key text";
    int importResult = 0, keyResult = 0;
    unsigned char pin[8] = {};
    unsigned pinLength = 8;
    int pinResult = 0;
    int lastError = 0;
};

std::uint64_t Raw(const void* address) {
    return reinterpret_cast<std::uint64_t>(address);
}

struct Step {
    Boundary boundary;
    const char* name;
    std::vector<std::uint64_t> arguments;
    int* result;
    std::function<void()> happens;  // what the real function would do
    std::size_t beneath;            // how many of the next steps it calls
};

constexpr Boundary kExports = Boundary::kExports, kToken = Boundary::kToken;

void Nothing() {}

std::vector<Step> Sign(Stage& s) {
    const auto signs = [&s] {
        strcpy(s.signature, "MEUCIQDsignature");
        s.signatureLength = 16;
    };
    const std::uint64_t text = Raw(s.text), warning = Raw(s.warning), signature = Raw(s.signature),
                        length = Raw(&s.signatureLength);
    return {
        {kExports,
         "Sign",
         {Raw(s.serial), 2, 3, text, warning, signature, length},
         &s.signResult,
         Nothing,
         2},
        {kToken, "SetWarningMsg", {Raw(s.serial), warning}, &s.warningResult, Nothing, 0},
        {kToken,
         "GMUsbKeyCriticalSign",
         {Raw(s.serial), 2, 3, text, signature, length},
         &s.signResult,
         signs,
         0},
    };
}

std::vector<Step> Read(Stage& s) {
    const auto names = [&s] { strcpy(s.label, "Ada's key"); };
    const auto measures = [&s] { s.labelLength = static_cast<int>(strlen(s.label)); };
    const auto counts = [&s] { s.pin[0] = 6; };
    return {
        {kExports,
         "GetLabel",
         {Raw(s.serial), Raw(s.label), Raw(&s.labelLength)},
         &s.labelResult,
         measures,
         1},
        {kToken, "GetLabel", {Raw(s.serial), Raw(s.label)}, &s.labelResult, names, 0},
        {kExports,
         "GetPinInfo",
         {Raw(s.serial), Raw(s.pin), Raw(&s.pinLength)},
         &s.pinResult,
         Nothing,
         1},
        {kToken,
         "GetPinInfo",
         {Raw(s.serial), Raw(s.pin), Raw(&s.pinLength)},
         &s.pinResult,
         counts,
         0},
    };
}

std::vector<Step> Play(Stage& s) {
    std::vector<Step> steps = Read(s);
    for (Step& step : Sign(s)) steps.push_back(std::move(step));
    steps.push_back({kExports,
                     "ImportEncX509Cert",
                     {Raw(s.serial), Raw(s.certificate), Raw(s.key)},
                     &s.importResult,
                     Nothing,
                     1});
    steps.push_back(
        {kToken, "GMImportPriKey", {Raw(s.serial), Raw(s.key), 0}, &s.importResult, Nothing, 0});
    return steps;
}

constexpr unsigned char kKey[kKeySize] = {1, 2, 3, 4, 5, 6, 7, 8};

Json Parsed(const Packer& packer) {
    return Json::from_msgpack(packer.data(), packer.data() + packer.size());
}

// The records of the play.
class Recorder {
public:
    std::vector<Json> Records() {
        Stage stage;
        const std::vector<Step> steps = Play(stage);
        for (std::size_t at = 0; at < steps.size(); at += 1 + steps[at].beneath) {
            Perform(steps, at, 0, stage);
        }
        return records_;
    }

private:
    void Perform(const std::vector<Step>& steps, std::size_t at, std::size_t parent, Stage& stage) {
        const Step& step = steps[at];
        Discretion discretion;
        discretion.full = true;
        std::copy(std::begin(kKey), std::end(kKey), discretion.key);
        LiveCall live;
        live.function = NumberOf(step.boundary, step.name);
        live.raw = step.arguments.data();
        live.kind = ResultKind::kNumber;
        live.NoteRoom();
        Packer arguments;
        PackArguments(arguments, live, discretion);
        records_.push_back(
            Json::array({1, at + 1, parent, 1, 1, at + 1, live.function, Parsed(arguments)}));
        for (std::size_t n = 1; n <= step.beneath; ++n) Perform(steps, at + n, at + 1, stage);
        step.happens();
        live.returned = true;
        live.result = static_cast<std::uint64_t>(*step.result);
        Packer outputs;
        PackOutputs(outputs, live, discretion);
        const Json lastError = step.boundary == Boundary::kExports ? Json(stage.lastError) : Json();
        records_.push_back(
            Json::array({2, at + 1, at + 100, 0, *step.result, lastError, Parsed(outputs)}));
    }

    std::vector<Json> records_;
};

class Differences : public testing::Test {
protected:
    Differences() { close(mkstemp(mPath)); }
    ~Differences() override { unlink(mPath); }

    void Write(const std::vector<Json>& records) {
        const int file = open(mPath, O_RDWR | O_TRUNC);
        ASSERT_TRUE(Writer::Create(file));
        close(file);
        Writer writer;
        ASSERT_TRUE(writer.Open(mPath));
        const auto append = [&writer](const std::string& record) {
            ASSERT_TRUE(writer.append(reinterpret_cast<const unsigned char*>(record.data()),
                                      record.size()));
        };
        append(DescriptionRecord({{"full", true},
                                  {"key", Json::binary({std::begin(kKey), std::end(kKey)})},
                                  {"time", 0},
                                  {"functions", DescribeFunctions()}}));
        for (const Json& record : records) {
            const auto bytes = Json::to_msgpack(record);
            append({bytes.begin(), bytes.end()});
        }
    }

    // What the replay says of a client that does what was recorded at first.
    std::string Replayed() {
        std::vector<unsigned char> room(sizeof(ReplayState) + 100, 0);
        auto* const state = reinterpret_cast<ReplayState*>(room.data());
        Replayer replayer(mPath, "", *state);
        Stage stage;
        const std::vector<Step> steps = Play(stage);
        for (std::size_t at = 0; at < steps.size(); at += 1 + steps[at].beneath) {
            Perform(replayer, steps, at, stage);
        }
        return state->text;
    }

    static void Perform(Replayer& replayer, const std::vector<Step>& steps, std::size_t at,
                        Stage& stage) {
        const Step& step = steps[at];
        const bool isToken = step.boundary == Boundary::kToken;
        Span span{};
        span.live.function = NumberOf(step.boundary, step.name);
        span.live.raw = step.arguments.data();
        span.live.kind = ResultKind::kNumber;
        span.lastError = isToken ? nullptr : &stage.lastError;
        replayer.Enter(span);
        // A library gives up at the first entry point that fails.
        for (std::size_t n = 1; n <= step.beneath && *step.result == 0; ++n) {
            Perform(replayer, steps, at + n, stage);
            *step.result = *steps[at + n].result;
        }
        if (isToken) {
            replayer.Answer(span);
            *step.result = span.live.Code();
        } else {
            step.happens();
            span.live.result = static_cast<std::uint64_t>(*step.result);
        }
        span.live.returned = true;
        replayer.Leave(span);
    }

    char mPath[32] = "differences-XXXXXX";
};

// One byte of a value: of a text, a tag or a number.
bool Seed(Json& value, std::mt19937& random) {
    if (value.is_binary() && !value.get_binary().empty()) {
        auto& bytes = value.get_binary();
        bytes[random() % bytes.size()] ^= static_cast<std::uint8_t>(1 + random() % 255);
        return true;
    }
    if (value.is_number()) {
        value = value.get<std::int64_t>() ^ static_cast<std::int64_t>(1 + random() % 255);
        return true;
    }
    return value.is_array() && !value.empty() && Seed(value[random() % value.size()], random);
}

TEST_F(Differences, none_is_named_where_there_is_none) {
    Write(Recorder().Records());
    EXPECT_EQ(Replayed(), "");
}

TEST_F(Differences, a_thousand_seeded_bytes_are_all_named) {
    const std::vector<Json> records = Recorder().Records();
    std::mt19937 random(20240608);
    std::set<std::string> messages;
    for (int n = 0; n < 1000;) {
        std::vector<Json> changed = records;
        Json& record = changed[random() % changed.size()];
        const bool isEnd = record[0] == 2;
        Json& place = !isEnd ? record[7] : record[std::vector<std::size_t>{4, 5, 6}[random() % 3]];
        if (!Seed(place, random)) continue;
        ++n;
        Write(changed);
        const std::string said = Replayed();
        ASSERT_TRUE(said.find("call ") == 0 && said.find(" was recorded") != std::string::npos)
            << record.dump() << "\nsaid: " << said;
        messages.insert(said);
    }
    EXPECT_GT(messages.size(), 100U);
}

}  // namespace
