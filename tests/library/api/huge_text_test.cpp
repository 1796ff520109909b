// Texts of more characters than a 32-bit count holds: the strings that take them refuse.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>

#include "api_test.h"
#include "lgn_exception.h"

namespace {

constexpr std::size_t piece = std::size_t{16} << 20;
constexpr std::size_t pieces = 128;  // 2^31 characters

// The pieces are one and the same memory, seen 128 times in a row; a NUL stands behind them.
class HugeText {
public:
    HugeText() {
        const int file = memfd_create("piece", MFD_CLOEXEC);
        if (file < 0 || ftruncate(file, piece) != 0) throw std::runtime_error("no memory file");
        std::memset(Map(nullptr, piece, MAP_SHARED, file), 'A', piece);
        text_ = Map(nullptr, pieces * piece + 1, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1);
        for (std::size_t n = 0; n < pieces; ++n) {
            Map(text_ + n * piece, piece, MAP_SHARED | MAP_FIXED, file);
        }
        close(file);
    }
    const char* Text() const { return text_; }

private:
    static char* Map(char* place, std::size_t size, int flags, int file) {
        void* const mapped = mmap(place, size, PROT_READ | PROT_WRITE, flags, file, 0);
        if (mapped == MAP_FAILED) throw std::runtime_error("no room for a huge text");
        return static_cast<char*>(mapped);
    }
    char* text_;
};

const char* Huge() {
    static const HugeText text;
    return text.Text();
}

// Leaves a request behind that a fetch gets without a call of the token.
void Probe() {
    TheRecorder().On("GMCreatePKCS10").Request("probed");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest("A1", "CertType(1)", nullptr, &length), 0);
    TheRecorder().Forget();
}

bool IsCached() {
    TheRecorder().Forget();
    CanaryBuffer buffer(20);
    int length = 19;
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), 0);
    return TheRecorder().Calls().empty();
}

}  // namespace

TEST(HugeText, has_one_character_more_than_a_signed_count_holds) {
    EXPECT_EQ(std::strlen(Huge()), std::size_t{INT32_MAX} + 1);
}

TEST(HugeCertificate, is_an_invalid_argument_of_the_string_library) {
    G_LastError = unrelated_code;
    Initialize();
    EXPECT_EQ(CodeThrownBy([] { ImportX509Cert("A1", Huge()); }), invalid_argument);
    EXPECT_EQ(CodeThrownBy([] { ImportEncX509Cert("A1", Huge(), "key"); }), invalid_argument);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

TEST(HugeKeyText, is_an_invalid_argument_of_the_string_library) {
    EXPECT_EQ(CodeThrownBy([] { ImportEncX509Cert("A1", "MIIC", Huge()); }), invalid_argument);
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

TEST(HugeSerialNumber, is_an_invalid_argument_where_a_copy_is_taken) {
    int length = 77;
    EXPECT_EQ(CodeThrownBy([] { ImportEncX509Cert(Huge(), "MIIC", "key"); }), invalid_argument);
    EXPECT_EQ(CodeThrownBy([&] { GenerateCertRequest(Huge(), "CertType(1)", nullptr, &length); }),
              invalid_argument);
    EXPECT_EQ(length, 77);
    EXPECT_EQ(Trace(), Lines{});
}

// An import forgets it before it looks at its texts.
TEST(ProbedRequest, is_forgotten_by_an_import_of_a_huge_text) {
    Probe();
    EXPECT_ANY_THROW(ImportX509Cert("A1", Huge()));
    EXPECT_FALSE(IsCached());
    Probe();
    EXPECT_ANY_THROW(ImportEncX509Cert("A1", Huge(), "key"));
    EXPECT_FALSE(IsCached());
}
