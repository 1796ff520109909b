// The kept request, on three pointers of the test's own.
#include "probe_cache.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <utility>

#include "last_error.h"

namespace {

class ProbeCache : public testing::Test {
protected:
    ProbeCache() { SetLastError(KESTA_OK); }
    ~ProbeCache() override { cache.ReleaseP10Buffer(); }

    kesta::RequestCall Call(char* to, const char* key = "A1", const char* groups = "info") {
        return {key, groups, to, &length};
    }
    int Serve(const kesta::RequestCall& request, int code = KESTA_OK) {
        return cache.Serve(request, [&](LgnString& requests) {
            ++made;
            SetLastError(code);
            requests.Append("request", 7);
            return code;
        });
    }
    bool IsEmpty() const { return p10 == nullptr && info == nullptr && serial == nullptr; }

    char* p10 = nullptr;
    char* info = nullptr;
    char* serial = nullptr;
    kesta::ProbeCache cache{p10, info, serial};
    char buffer[16] = {};
    int length = 16;
    int made = 0;
};

}  // namespace

TEST_F(ProbeCache, keeps_what_a_probe_made_and_what_it_was_made_for) {
    EXPECT_EQ(Serve(Call(nullptr)), KESTA_OK);
    EXPECT_EQ(length, 8);
    EXPECT_STREQ(p10, "request");
    EXPECT_STREQ(info, "info");
    EXPECT_STREQ(serial, "A1");
}

// Behind it there may be nothing.
TEST_F(ProbeCache, reads_no_text_beyond_its_end) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const mapped =
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(mapped, MAP_FAILED);
    char* const end = static_cast<char*>(mapped) + page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    std::memcpy(end - 5, "info", 5);
    EXPECT_EQ(Serve(Call(nullptr, end - 5, end - 5)), KESTA_OK);
    EXPECT_STREQ(info, "info");
    EXPECT_STREQ(serial, "info");
    munmap(mapped, 2 * page);
}

TEST_F(ProbeCache, serves_the_call_that_follows_and_is_used_up) {
    Serve(Call(nullptr));
    length = 7;
    EXPECT_EQ(Serve(Call(buffer)), KESTA_OK);
    EXPECT_STREQ(buffer, "request");
    EXPECT_EQ(length, 7);
    EXPECT_EQ(made, 1);
    EXPECT_TRUE(IsEmpty());
}

TEST_F(ProbeCache, counts_the_NUL_and_stays_when_the_buffer_is_too_small) {
    Serve(Call(nullptr));
    length = 6;
    EXPECT_EQ(Serve(Call(buffer)), KESTA_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 8);
    EXPECT_FALSE(IsEmpty());
}

TEST_F(ProbeCache, is_forgotten_by_a_call_for_something_else_that_fails) {
    for (const auto& other :
         {Call(buffer, "B2"), Call(buffer, "A1", "Info"), Call(buffer, nullptr)}) {
        Serve(Call(nullptr));
        EXPECT_EQ(Serve(other, 7), 7);
        EXPECT_TRUE(IsEmpty());
    }
}

TEST_F(ProbeCache, outlives_a_probe_that_fails) {
    Serve(Call(nullptr));
    EXPECT_EQ(Serve(Call(nullptr, "B2"), 7), 7);
    EXPECT_STREQ(serial, "A1");
}

TEST_F(ProbeCache, takes_no_serial_number_for_an_empty_one) {
    Serve(Call(nullptr, nullptr));
    EXPECT_STREQ(serial, "");
    EXPECT_EQ(Serve(Call(buffer, "")), KESTA_OK);
    EXPECT_EQ(made, 1);
}

TEST_F(ProbeCache, keeps_nothing_of_a_call_with_a_buffer) {
    length = 6;
    EXPECT_EQ(Serve(Call(buffer)), KESTA_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 7) << "here without the NUL";
    EXPECT_EQ(Serve(Call(buffer)), KESTA_OK);
    EXPECT_EQ(made, 2);
    EXPECT_TRUE(IsEmpty());
}

// A client may hold the texts too, and take one away.
TEST_F(ProbeCache, serves_nothing_when_one_of_the_three_is_missing) {
    for (char** const one : {&p10, &info, &serial}) {
        Serve(Call(nullptr));
        delete[] std::exchange(*one, nullptr);
        made = 0;
        length = 16;
        EXPECT_EQ(Serve(Call(buffer)), KESTA_OK);
        EXPECT_EQ(made, 1);
        cache.ReleaseP10Buffer();
    }
}
