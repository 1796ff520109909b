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
        std::memset(map(nullptr, piece, MAP_SHARED, file), 'A', piece);
        text_ = map(nullptr, pieces * piece + 1, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1);
        for (std::size_t n = 0; n < pieces; ++n) {
            map(text_ + n * piece, piece, MAP_SHARED | MAP_FIXED, file);
        }
        close(file);
    }
    const char* text() const { return text_; }

private:
    static char* map(char* place, std::size_t size, int flags, int file) {
        void* const mapped = mmap(place, size, PROT_READ | PROT_WRITE, flags, file, 0);
        if (mapped == MAP_FAILED) throw std::runtime_error("no room for a huge text");
        return static_cast<char*>(mapped);
    }
    char* text_;
};

const char* huge() {
    static const HugeText text;
    return text.text();
}

// Leaves a request behind that a fetch gets without a call of the token.
void probe() {
    recorder().on("GMCreatePKCS10").request("probed");
    int length = 0;
    ASSERT_EQ(GenerateCertRequest("A1", "CertType(1)", nullptr, &length), 0);
    recorder().forget();
}

bool is_cached() {
    recorder().forget();
    CanaryBuffer buffer(20);
    int length = 19;
    EXPECT_EQ(GenerateCertRequest("A1", "CertType(1)", buffer.data(), &length), 0);
    return recorder().calls().empty();
}

}  // namespace

TEST(HugeText, has_one_character_more_than_a_signed_count_holds) {
    EXPECT_EQ(std::strlen(huge()), std::size_t{INT32_MAX} + 1);
}

TEST(HugeCertificate, is_an_invalid_argument_of_the_string_library) {
    G_LastError = unrelated_code;
    Initialize();
    EXPECT_EQ(code_thrown_by([] { ImportX509Cert("A1", huge()); }), invalid_argument);
    EXPECT_EQ(code_thrown_by([] { ImportEncX509Cert("A1", huge(), "key"); }), invalid_argument);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_FALSE(log_exists());
}

TEST(HugeKeyText, is_an_invalid_argument_of_the_string_library) {
    EXPECT_EQ(code_thrown_by([] { ImportEncX509Cert("A1", "MIIC", huge()); }), invalid_argument);
    EXPECT_EQ(trace(), Lines{});
    EXPECT_FALSE(log_exists());
}

TEST(HugeSerialNumber, is_an_invalid_argument_where_a_copy_is_taken) {
    int length = 77;
    EXPECT_EQ(code_thrown_by([] { ImportEncX509Cert(huge(), "MIIC", "key"); }), invalid_argument);
    EXPECT_EQ(code_thrown_by([&] { GenerateCertRequest(huge(), "CertType(1)", nullptr, &length); }),
              invalid_argument);
    EXPECT_EQ(length, 77);
    EXPECT_EQ(trace(), Lines{});
}

// An import forgets it before it looks at its texts.
TEST(ProbedRequest, is_forgotten_by_an_import_of_a_huge_text) {
    probe();
    EXPECT_ANY_THROW(ImportX509Cert("A1", huge()));
    EXPECT_FALSE(is_cached());
    probe();
    EXPECT_ANY_THROW(ImportEncX509Cert("A1", huge(), "key"));
    EXPECT_FALSE(is_cached());
}
