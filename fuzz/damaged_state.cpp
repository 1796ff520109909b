// The state of the software key with bytes of its files changed behind its back. Every entry point
// answers a code that is documented; what is not what was stored last is told as damage and left as
// it is; and a wrong PIN costs a try and opens nothing, even where the guard knows the file.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>

#include "kesta/token_library.h"
#include "softkey/store/damage.h"
#include "softkey/store/guard.h"
#include "softkey/store/key_admin.h"
#include "softkey/store/keys.h"
#include "softkey/store/places.h"
#include "softkey_fuzz.h"

extern "C" {
#define FUZZ_DECLARE_ENTRY(result, name, arguments) result name arguments;
KESTA_TOKEN_ENTRY_POINTS(FUZZ_DECLARE_ENTRY)
#undef FUZZ_DECLARE_ENTRY
}

namespace {

namespace fs = std::filesystem;
using namespace softkey;
using Files = std::map<std::string, std::string>;

constexpr const char* kSerial = "KS0000000001";
constexpr const char* kPin = "123456";
constexpr const char* kWrongPin = "999999";

// A folder for each input: what a process knows of a state goes by its folder.
class Home {
public:
    explicit Home(const Files& files) {
        static const fs::path top = [] {
            std::string name = (fs::temp_directory_path() / "fuzz-state-XXXXXX").string();
            if (mkdtemp(name.data()) == nullptr) std::abort();
            return fs::path(name);
        }();
        static unsigned count = 0;
        path_ = top / std::to_string(++count);
        fs::create_directories(path_);
        fs::permissions(path_, fs::perms::owner_all);
        for (const auto& [name, bytes] : files) {
            std::ofstream(path_ / name, std::ios::binary) << bytes;
        }
        setenv("KESTA_SOFTKEY_HOME", path_.c_str(), 1);
    }
    ~Home() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
        fs::remove(path_.parent_path(), ignored);
    }
    Home(const Home&) = delete;
    Home& operator=(const Home&) = delete;

    std::string Path() const { return path_; }
    Files Read() const {
        Files files;
        for (const auto& entry : fs::directory_iterator(path_)) {
            std::ifstream in(entry.path(), std::ios::binary);
            files[entry.path().filename()] = {std::istreambuf_iterator<char>(in), {}};
        }
        return files;
    }
    std::optional<int> TriesLeft() const {
        std::optional<int> tries;
        Accepted(
            [&] {
                const auto key = KeyTable(*Store::Open(Path())).Find(kSerial);
                if (key) tries = key->triesLeft;
            },
            {kStateDamaged});
        return tries;
    }

private:
    fs::path path_;
};

// One documented code, whatever was found.
int Known(int code) {
    switch (code) {
#define FUZZ_CODE(name, value, english, chinese) case value:
        SOFTKEY_CODES(FUZZ_CODE)
#undef FUZZ_CODE
        return code;
    }
    std::fprintf(stderr, "code %d\n", code);
    std::abort();
}

// A buffer of exactly the size that the contract gives it.
struct Buffer {
    explicit Buffer(std::size_t room) : bytes(new char[room]()), size(std::uint32_t(room)) {}
    std::unique_ptr<char[]> bytes;
    std::uint32_t size;
    char* get() const { return bytes.get(); }
};

int Describe() {
    std::uint32_t state = 0;
    const auto record = std::make_unique<_S_DEV_CONFIG>();
    return Known(CheckDeviceEx(&state, record.get(), 1, Buffer(1024).get()));
}

int Verify(const char* pin) {
    setenv("KESTA_SOFTKEY_PIN", pin, 1);
    return Known(VerifyPIN(kSerial));
}

void AskForTexts() {
    char serial[] = "KS0000000001";
    Known(GetLabel(serial, Buffer(512).get()));
    Known(GetData("0123456789", 7, Buffer(260).get()));
    for (const unsigned certificate : {1U, 3U}) {
        Buffer text(4096), information(1280);
        Known(GetCertInfo(serial, certificate, 2, text.get(), &text.size));
        Known(GM_GetCertDN(serial, certificate, 2, Buffer(1024).get()));
        Known(GetCertInfo_UOS(serial, certificate, information.get(), &information.size));
    }
    Buffer pin(8);
    Known(::GetPinInfo(serial, pin.get(), &pin.size));
}

void Use() {
    char serial[] = "KS0000000001", hash[65];
    std::memset(hash, 'a', 64);
    hash[64] = '\0';
    Buffer signature(300), critical(300), plain(4096);
    Known(GMUsbKeyCommonSign(serial, 0, 0, hash, 0, signature.get(), &signature.size));
    Known(SetWarningMsg(serial, "warning"));
    Known(GMUsbKeyCriticalSign(serial, 0, 0, "text", critical.get(), &critical.size));
    char cipher[] = "MHkCIQ==";
    Known(GMUSBKeyAsymDec2(serial, 0, 0, cipher, plain.get(), &plain.size));
    char* request = nullptr;
    Known(GMCreatePKCS10(serial, 1, 2, 3, &request, nullptr, 0));
    delete[] request;
}

void Change() {
    KestaStringObject unused{nullptr};
    Known(SetLabel(kSerial, "new"));
    Known(SetData("0123456789", 8, "value"));
    Known(GMWritePKCS7(kSerial, "MIIC", unused));
    Known(DelCertAndTempKey(kSerial, 3, 2));
    char pin[] = "123456";
    Known(CustInitCard(kSerial, 0, pin, 0));
}

// A state with everything in it, and a try gone.
const Files& OfToday() {
    static const Files files = [] {
        const Home home{Files()};
        NewKey key;
        key.serial = kSerial;
        key.pinCost = {2, 1, 1};
        key.certificates = Validity{1700000000, 2000000000};
        CreateKey(*Store::Open(home.Path()), key, kPin);
        FUZZ_EXPECT(SetData("0123456789", 7, "value") == kOk);
        FUZZ_EXPECT(Verify(kWrongPin) == kPinWrong);
        return home.Read();
    }();
    return files;
}

const Files& OfTheFirstRelease() {
    static const Files files = [] {
        Files read;
        for (const char* const name : {"softkey.db", "softkey.db-wal"}) {
            std::ifstream in(std::string(FIRST_RELEASE_STATE) + "/" + name, std::ios::binary);
            read[name] = {std::istreambuf_iterator<char>(in), {}};
        }
        return read;
    }();
    return files;
}

// Each four bytes change one: the file, its place, a mask. A rest cuts so much off.
void Edit(Files& files, const std::uint8_t* data, std::size_t size) {
    const auto file = [&](std::size_t number) -> std::string& {
        return std::next(files.begin(), static_cast<long>(number % files.size()))->second;
    };
    for (; size >= 4; data += 4, size -= 4) {
        std::string& bytes = file(data[0]);
        const std::size_t place = (data[1] * std::size_t{256} + data[2]) * bytes.size() / 65536;
        if (!bytes.empty()) bytes[place] = static_cast<char>(bytes[place] ^ data[3]);
    }
    if (size > 1) file(data[0]).resize(file(data[0]).size() * data[1] / 256);
}

// The guard says that this is the state.
void Seal(Files& files) {
    const std::string& image = files[kDatabaseName];
    Guard guard = Guard::Make();
    guard.after = {7, guard.DigestOf(Bytes(image.begin(), image.end()))};
    guard.before = guard.after;
    const Guard::Text text = guard.Write();
    files["softkey.guard"].assign(text.begin(), text.end());
}

// What the guard does not know is damage for everyone and stays as it is.
void CheckDamage(const Home& home, const Files& files) {
    FUZZ_EXPECT(Describe() == kStateDamaged);
    FUZZ_EXPECT(Verify(kWrongPin) == kStateDamaged && Verify(kPin) == kStateDamaged);
    FUZZ_EXPECT(!FindDamage(home.Path()).empty());
    AskForTexts();
    Use();
    Change();
    FUZZ_EXPECT(home.Read() == files);
}

void CheckTries(const Home& home) {
    const std::optional<int> before = home.TriesLeft();
    const int wrong = Verify(kWrongPin);
    const std::optional<int> after = home.TriesLeft();
    FUZZ_EXPECT(wrong != kOk);
    FUZZ_EXPECT(wrong != kPinWrong || (before && after && *after == *before - 1));
    FUZZ_EXPECT(!before || !after || *after <= *before);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    setenv("KESTA_SOFTKEY_BUTTON_MS", "1", 1);
    setenv("KESTA_SOFTKEY_PIN_COST", "1024", 1);
    const bool today = (data[0] & 1) == 0, sealed = (data[0] & 2) != 0;
    const Files& sound = today ? OfToday() : OfTheFirstRelease();
    Files files = sound;
    Edit(files, data + 1, size - 1);
    if (today && sealed) Seal(files);
    const Home home(files);
    if (today && !sealed && files != sound) {
        CheckDamage(home, files);
    } else if (!today) {
        // What it becomes is a state of today; its PIN takes long to check.
        Describe();
        AskForTexts();
        home.TriesLeft();
        Accepted([&] { FindDamage(home.Path()); }, {kStateUnreachable});
    } else {
        Describe();
        AskForTexts();
        CheckTries(home);
        Verify(kPin);
        Use();
        Change();
        Accepted([&] { FindDamage(home.Path()); }, {kStateUnreachable});
    }
    GM_RemoveUserPin();
    return 0;
}
