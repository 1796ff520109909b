#include <dlfcn.h>
#include <openssl/err.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "event_client.h"
#include "softkey/codes.h"
#include "softkey/store/keys.h"

namespace {

class Events : public EventClient {
protected:
    Events() { MakeKeys(); }
};

TEST_F(Events, The_slot_list_holds_the_inserted_keys_in_order) {
    std::array<std::uint32_t, 16> slots = {};
    std::uint32_t count = 10;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, slots.data(), &count));
    EXPECT_EQ(2U, count);
    EXPECT_EQ(1U, slots[0]);
    EXPECT_EQ(4U, slots[1]);
}

TEST_F(Events, All_slots_are_listed_when_the_absent_ones_are_asked_for_too) {
    std::array<std::uint32_t, 16> slots = {};
    std::uint32_t count = 10;
    EXPECT_EQ(0, ValtoT_GetSlotList(0, slots.data(), &count));
    EXPECT_EQ(3U, count);
    EXPECT_EQ(9U, slots[2]);
}

TEST_F(Events, The_slot_list_does_not_go_beyond_the_room) {
    std::array<std::uint32_t, 2> slots = {77, 77};
    std::uint32_t count = 1;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, slots.data(), &count));
    EXPECT_EQ(1U, count);
    EXPECT_EQ(77U, slots[1]);
}

TEST_F(Events, The_slot_list_without_an_array_answers_the_number) {
    std::uint32_t count = 0;
    EXPECT_EQ(0, ValtoT_GetSlotList(1, nullptr, &count));
    EXPECT_EQ(2U, count);
}

TEST_F(Events, The_device_record_holds_the_media_id_at_byte_248_and_zeros) {
    _S_DEV_CONFIG record;
    std::memset(&record, 0xEE, sizeof record);
    EXPECT_EQ(0, ValtoT_GetDeviceInfo(4, 0, &record));
    std::array<char, 396> expected = {};
    std::memcpy(expected.data() + 248, "MEDIA-B-16-BYTES", 16);
    EXPECT_EQ(0, std::memcmp(&record, expected.data(), expected.size()));
}

TEST_F(Events, The_device_record_of_an_absent_key_is_not_touched) {
    _S_DEV_CONFIG record = {};
    for (const std::uint32_t slot : {0U, 2U, 9U}) {
        EXPECT_EQ(softkey::kKeyAbsent, ValtoT_GetDeviceInfo(slot, 0, &record));
    }
    EXPECT_EQ('\0', record.szMediaId[0]);
}

TEST_F(Events, Null_pointers_are_bad_arguments) {
    EXPECT_EQ(softkey::kBadArgument, ValtoT_GetSlotList(1, nullptr, nullptr));
    EXPECT_EQ(softkey::kBadArgument, ValtoT_GetDeviceInfo(1, 0, nullptr));
    EXPECT_EQ(softkey::kBadArgument, ValtoT_ContextInit(nullptr));
    std::uint32_t context = OpenContext();
    EXPECT_EQ(softkey::kBadArgument, ValtoT_WaitForEvent(1, 0, nullptr, &context));
}

TEST_F(Events, Waiting_without_a_context_is_refused) {
    VALTO_EVENT_INFO event = {};
    std::uint32_t context = 0;
    EXPECT_EQ(softkey::kNoContext, ValtoT_WaitForEvent(1, 0, &event, &context));
    EXPECT_EQ(softkey::kNoContext, ValtoT_ContextFinal());
}

TEST_F(Events, What_happened_before_the_first_call_is_not_delivered) {
    VALTO_EVENT_INFO event = {};
    std::uint32_t context = OpenContext();
    EXPECT_EQ(softkey::kNoEvent, ValtoT_WaitForEvent(1, 0, &event, &context));
}

TEST_F(Events, Removal_and_insertion_are_delivered_once_and_in_order) {
    const std::uint32_t context = OpenContext();
    softkey::KeyTable(*store_).SetInserted("A", false);
    softkey::KeyTable(*store_).SetInserted("C", true);
    softkey::KeyTable(*store_).SetInserted("A", true);
    EXPECT_EQ("-1 +9 +1", Drain(context));
    EXPECT_EQ("", Drain(context));
}

TEST_F(Events, The_record_is_zero_but_for_kind_and_slot) {
    std::uint32_t context = OpenContext();
    softkey::KeyTable(*store_).SetInserted("B", false);
    VALTO_EVENT_INFO event;
    std::memset(&event, 0xEE, sizeof event);
    EXPECT_EQ(0, ValtoT_WaitForEvent(1, 0, &event, &context));
    std::array<unsigned char, 332> expected = {};
    expected[0] = 2;
    expected[12] = 4;
    EXPECT_EQ(0, std::memcmp(&event, expected.data(), expected.size()));
}

TEST_F(Events, An_event_between_two_waits_is_delivered_by_the_second) {
    std::uint32_t context = OpenContext();
    softkey::KeyTable(*store_).SetInserted("A", false);
    EXPECT_EQ("-1", Drain(context));
    EXPECT_EQ(0, ValtoT_ContextFinal());
    softkey::KeyTable(*store_).SetInserted("A", true);
    VALTO_EVENT_INFO event = {};
    EXPECT_EQ(softkey::kNoContext, ValtoT_WaitForEvent(1, 0, &event, &context));
    context = OpenContext();
    EXPECT_EQ("+1", Drain(context));
}

TEST_F(Events, An_event_between_scan_and_wait_is_delivered) {
    std::uint32_t count = 0;
    ValtoT_GetSlotList(1, nullptr, &count);
    softkey::KeyTable(*store_).SetInserted("A", false);
    EXPECT_EQ("-1", Drain(OpenContext()));
}

TEST_F(Events, A_context_that_was_left_open_does_not_hinder_the_next) {
    OpenContext();
    softkey::KeyTable(*store_).SetInserted("A", false);
    EXPECT_EQ("-1", Drain(OpenContext()));
}

TEST_F(Events, An_arrived_key_that_is_gone_again_still_tells_its_media_id) {
    std::uint32_t context = OpenContext();
    softkey::KeyTable(*store_).SetInserted("C", true);
    softkey::KeyTable(*store_).SetInserted("C", false);
    VALTO_EVENT_INFO event = {};
    _S_DEV_CONFIG record = {};
    EXPECT_EQ(0, ValtoT_WaitForEvent(1, 0, &event, &context));
    EXPECT_EQ("+9", Text(event));
    EXPECT_EQ(0, ValtoT_GetDeviceInfo(9, 0xE0000, &record));
    EXPECT_STREQ("MEDIA-C", record.szMediaId);
    EXPECT_EQ(softkey::kKeyAbsent, ValtoT_GetDeviceInfo(9, 0, &record));
    EXPECT_EQ("-9", Drain(context));
}

TEST_F(Events, Creating_and_deleting_a_key_are_events) {
    const std::uint32_t context = OpenContext();
    AddKey(*store_, "D", 2, "MEDIA-D");
    softkey::KeyTable(*store_).Delete("D");
    EXPECT_EQ("+2 -2", Drain(context));
}

TEST_F(Events, Every_process_sees_every_event) {
    std::array<int, 2> ready = {};
    std::array<int, 2> result = {};
    ASSERT_EQ(0, pipe(ready.data()));
    ASSERT_EQ(0, pipe(result.data()));
    std::vector<pid_t> children;
    for (int i = 0; i < 3; ++i) {
        children.push_back(fork());
        if (children.back() != 0) continue;
        const std::uint32_t context = OpenContext();
        (void)!write(ready[1], "r", 1);
        const std::string seen = WaitFor(4, context) + "\n";
        (void)!write(result[1], seen.data(), seen.size());
        _exit(0);
    }
    char byte = 0;
    for (std::size_t i = 0; i < children.size(); ++i) ASSERT_EQ(1, read(ready[0], &byte, 1));
    softkey::KeyTable(*store_).SetInserted("A", false);
    softkey::KeyTable(*store_).SetInserted("A", true);
    softkey::KeyTable(*store_).SetInserted("B", false);
    softkey::KeyTable(*store_).SetInserted("C", true);
    for (const pid_t child : children) waitpid(child, nullptr, 0);
    close(result[1]);
    std::string all;
    while (read(result[0], &byte, 1) == 1) all += byte;
    close(result[0]);
    close(ready[0]);
    close(ready[1]);
    EXPECT_EQ("-1 +1 -4 +9\n-1 +1 -4 +9\n-1 +1 -4 +9\n", all);
}

TEST_F(Events, A_forked_child_goes_on_where_its_parent_was) {
    const std::uint32_t context = OpenContext();
    softkey::KeyTable(*store_).SetInserted("A", false);
    EXPECT_EQ("-1", Drain(context));
    softkey::KeyTable(*store_).SetInserted("A", true);
    const pid_t child = fork();
    if (child == 0) _exit(Drain(context) == "+1" ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ("+1", Drain(context));
}

// A client may leave anything in OpenSSL's queue of errors, and finds nothing of the key's in it.
TEST_F(Events, OpenSSLs_errors_are_neither_believed_nor_left) {
    std::uint32_t count = 0;
    ERR_raise(ERR_LIB_EVP, ERR_R_MALLOC_FAILURE);
    EXPECT_EQ(0, ValtoT_GetSlotList(1, nullptr, &count));
    EXPECT_EQ(0U, ERR_peek_error());
    ERR_raise(ERR_LIB_EVP, ERR_R_MALLOC_FAILURE);
    EXPECT_EQ(softkey::kBadArgument, ValtoT_GetSlotList(1, nullptr, nullptr));
    ERR_clear_error();
    folder_.Write("home/softkey.db", std::string(8192, 'x'));
    ERR_raise(ERR_LIB_EVP, ERR_R_MALLOC_FAILURE);
    EXPECT_EQ(softkey::kStateDamaged, ValtoT_GetSlotList(1, nullptr, &count));
    EXPECT_EQ(0U, ERR_peek_error());
}

TEST_F(Events, A_damaged_database_is_a_code_and_no_crash) {
    store_.reset();
    std::filesystem::remove_all(home_);
    std::filesystem::create_directory(home_);
    std::filesystem::permissions(home_, std::filesystem::perms::owner_all);
    folder_.Write("home/softkey.db", std::string(8192, 'x'));
    std::uint32_t value = 0;
    _S_DEV_CONFIG record = {};
    EXPECT_EQ(softkey::kStateDamaged, ValtoT_GetSlotList(1, nullptr, &value));
    EXPECT_EQ(softkey::kStateDamaged, ValtoT_GetDeviceInfo(1, 0, &record));
    EXPECT_EQ(softkey::kStateDamaged, ValtoT_ContextInit(&value));
}

TEST_F(Events, Threads_that_wait_at_once_share_the_events) {
    std::uint32_t context = OpenContext();
    std::atomic<int> seen{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&seen, &done, context]() mutable {
            VALTO_EVENT_INFO event = {};
            while (!done) {
                if (ValtoT_WaitForEvent(1, 0, &event, &context) == 0) ++seen;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    for (int i = 0; i < 20; ++i) softkey::KeyTable(*store_).SetInserted("A", i % 2 != 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (seen < 20 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    done = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(20, seen);
}

// KESTA_FORKS says how often; a child that finds a lock held by nobody never ends.
TEST_F(Events, A_child_of_a_polling_process_can_use_the_library) {
    std::atomic<bool> done{false};
    std::thread poller([&done, context = OpenContext()]() mutable {
        VALTO_EVENT_INFO event = {};
        while (!done) ValtoT_WaitForEvent(1, 0, &event, &context);
    });
    const char* const wanted = std::getenv("KESTA_FORKS");
    const int forks = wanted != nullptr ? std::atoi(wanted) : 100;
    int good = 0;
    for (int i = 0; i < forks && good == i; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            std::uint32_t context = 0;
            std::uint32_t count = 10;
            VALTO_EVENT_INFO event = {};
            const bool works = ValtoT_ContextInit(&context) == 0 &&
                               ValtoT_WaitForEvent(1, 0, &event, &context) == softkey::kNoEvent &&
                               ValtoT_GetSlotList(1, nullptr, &count) == 0 && count == 2;
            _exit(works ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        good += status == 0 ? 1 : 0;
    }
    done = true;
    poller.join();
    EXPECT_EQ(forks, good);
}

TEST_F(Events, Leaving_the_process_while_a_thread_polls_does_not_crash) {
    for (int run = 0; run < 20; ++run) {
        const pid_t child = fork();
        if (child == 0) {
            std::thread([] {
                std::uint32_t context = OpenContext();
                VALTO_EVENT_INFO event = {};
                for (;;) ValtoT_WaitForEvent(1, 0, &event, &context);
            }).detach();
            std::this_thread::sleep_for(std::chrono::milliseconds(run));
            std::exit(0);  // with all exit handlers
        }
        int status = -1;
        waitpid(child, &status, 0);
        ASSERT_EQ(0, status) << "run " << run;
    }
}

TEST_F(Events, Waits_leave_no_descriptor_behind) {
    const auto open = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    OpenContext();
    ValtoT_ContextFinal();
    const auto before = open();
    for (int i = 0; i < 100; ++i) {
        Drain(OpenContext());
        ValtoT_ContextFinal();
    }
    EXPECT_EQ(before, open());
}

TEST_F(Events, A_context_has_the_number_one) {
    EXPECT_EQ(1U, OpenContext());
}

TEST_F(Events, What_was_not_taken_of_a_folder_is_dropped_when_another_is_named) {
    const std::uint32_t context = OpenContext();
    softkey::KeyTable(*store_).SetInserted("A", false);
    softkey::KeyTable(*store_).SetInserted("B", false);
    VALTO_EVENT_INFO event = {};
    std::uint32_t same = context;
    ASSERT_EQ(0, ValtoT_WaitForEvent(1, 0, &event, &same));
    const auto other = softkey::Store::Open(folder_.File("other"));
    AddKey(*other, "N", 3, "MEDIA-N");
    const ScopedVariable named("KESTA_SOFTKEY_HOME", folder_.File("other").c_str());
    EXPECT_EQ("", Drain(OpenContext()));
    softkey::KeyTable(*other).SetInserted("N", false);
    EXPECT_EQ("-3", Drain(context));
}

TEST_F(Events, What_was_seen_before_a_damaged_folder_was_named_is_not_told_again) {
    std::uint32_t context = OpenContext();
    softkey::KeyTable(*store_).SetInserted("A", false);
    EXPECT_EQ("-1", Drain(context));
    folder_.Write("damaged", "no folder");
    {
        const ScopedVariable named("KESTA_SOFTKEY_HOME", folder_.File("damaged").c_str());
        std::uint32_t count = 0;
        EXPECT_EQ(softkey::kStateUnreachable, ValtoT_GetSlotList(1, nullptr, &count));
        VALTO_EVENT_INFO event = {};
        EXPECT_EQ(softkey::kStateUnreachable, ValtoT_WaitForEvent(1, 0, &event, &context))
            << "nor is the former one read meanwhile";
    }
    softkey::KeyTable(*store_).SetInserted("B", false);
    EXPECT_EQ("-4", Drain(context));
}

TEST_F(Events, Only_the_key_that_arrived_last_is_told_by_its_event) {
    std::uint32_t context = OpenContext();
    softkey::KeyTable(*store_).SetInserted("C", true);
    softkey::KeyTable(*store_).SetInserted("C", false);
    softkey::KeyTable(*store_).SetInserted("A", false);
    VALTO_EVENT_INFO event = {};
    _S_DEV_CONFIG record = {};
    ASSERT_EQ(0, ValtoT_WaitForEvent(1, 0, &event, &context));
    EXPECT_EQ(0, ValtoT_GetDeviceInfo(9, 0xE0000, &record));
    EXPECT_EQ(softkey::kKeyAbsent, ValtoT_GetDeviceInfo(1, 0xE0000, &record));
    EXPECT_EQ(softkey::kKeyAbsent, ValtoT_GetDeviceInfo(9, 0xE0001, &record));
    EXPECT_EQ(0, ValtoT_GetDeviceInfo(4, 0xE0000, &record)) << "one that stayed";
    ASSERT_EQ(0, ValtoT_WaitForEvent(1, 0, &event, &context));
    EXPECT_EQ("-9", Text(event));
    EXPECT_EQ(softkey::kKeyAbsent, ValtoT_GetDeviceInfo(9, 0xE0000, &record));
}

TEST_F(Events, The_token_library_is_asked_to_look_once_after_removals_and_is_not_held) {
    void* const library = dlopen(STAND_IN_TOKEN, RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto looks = reinterpret_cast<int (*)()>(dlsym(library, "Looks"));
    const std::uint32_t context = OpenContext();
    softkey::KeyTable(*store_).SetInserted("C", true);
    EXPECT_EQ("+9", Drain(context));
    EXPECT_EQ(0, looks());
    softkey::KeyTable(*store_).SetInserted("A", false);
    softkey::KeyTable(*store_).SetInserted("A", true);
    EXPECT_EQ("-1 +1", Drain(context));
    EXPECT_EQ(1, looks());
    dlclose(library);
    EXPECT_EQ(nullptr, dlopen("libKestaZRK.so", RTLD_NOW | RTLD_NOLOAD));
}

}  // namespace
