// What the parts do when the heap has nothing left. Its operators take the place of the runtime's
// in this whole program.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "softkey/codes.h"
#include "softkey/messages.h"
#include "softkey/misbehaviour/misbehaviour.h"
#include "softkey/misbehaviour/plan_fields.h"
#include "temporary_folder.h"

using namespace softkey;

namespace {

constexpr long kUnlimited = -1;
thread_local long left = kUnlimited;  // allocations of this thread before all of them fail
thread_local long made = 0;

// The heap has room for so many allocations while this lives.
struct Room {
    explicit Room(long allocations) { left = allocations; }
    ~Room() { left = kUnlimited; }
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;
};

// The runtime's operator, or a sanitizer's.
template <class Function>
Function Next(const char* symbol) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, symbol));
}

}  // namespace

#define EVERYWHERE __attribute__((visibility("default"), noinline))

EVERYWHERE void* operator new(std::size_t size) {
    static const auto original = Next<void* (*)(std::size_t)>("_Znwm");
    if (left == 0) throw std::bad_alloc();
    if (left > 0) --left;
    ++made;
    return original(size);
}

EVERYWHERE void operator delete(void* block) noexcept {
    static const auto original = Next<void (*)(void*)>("_ZdlPv");
    original(block);
}

EVERYWHERE void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

namespace {

constexpr char kPlan[] = R"({"seed": 7, "foreign": [1, 2], "rules": [
    {"entry": "*", "serial": "a serial number", "every": 2, "code": "KeyRemoved"}]})";

bool Parsed(long allocations) {
    const Room room(allocations);
    try {
        ParseMisbehaviourPlan(kPlan);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// What the reader of JSON itself does then is its own.
TEST(WithoutMemory, a_plan_that_was_read_is_let_go_of) {
    ReadPlanJson(kPlan);
    const std::string text = kPlan;
    const long before = made;
    const PlanJson json = ReadPlanJson(text);
    const long ofReading = made - before;
    long more = 1;
    while (!Parsed(ofReading + more)) ++more;
    EXPECT_GT(more, 10);
}

TEST(WithoutMemory, a_call_under_a_plan_says_so) {
    const TemporaryFolder folder;
    SetMisbehaviour(folder.Path(), kPlan);
    const std::string home = folder.Path();
    const std::function<std::string()> serial = [] { return std::string(); };
    Misbehaviour effect;
    {
        const Room none(0);
        effect = NextMisbehaviour(home, "SetData", serial);
    }
    EXPECT_EQ(effect.code, kNoMemory);
}

TEST(WithoutMemory, a_code_has_a_text_all_the_same) {
    const char *known = nullptr, *unknown = nullptr;
    {
        const Room none(0);
        known = MessageText(kPinLocked, Language::kChinese, Charset::kGb18030);
        unknown = MessageText(0x5BFC, Language::kChinese, Charset::kUtf8);
    }
    EXPECT_STREQ(known, "the PIN is locked");
    EXPECT_STREQ(unknown, "unknown result code");
}

}  // namespace
