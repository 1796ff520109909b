// The binding of the token library: all entry points or none.
#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

#include "api_test.h"
#include "exports_cpp.h"
#include "kesta/token_library.h"

namespace {

const Lines lookUpOrder = {
    "CheckDeviceEx",        "ChangePin",        "CustInitCard",      "GMCreatePKCS10",
    "GMWritePKCS7",         "GetLabel",         "SetLabel",          "GetCertInfo",
    "GM_GetCertDN",         "UOS_SetCharset",   "UOS_SetLanguage",   "SetWarningMsg",
    "GMUsbKeyCriticalSign", "GetMediaID",       "GM_RemoveUserPin",  "GMImportPriKey",
    "GMUsbKeyCommonSign",   "GMUSBKeyAsymDec2", "GMCreatePKCS10Ex",  "X_ErrorConvert_UOS",
    "DelCertAndTempKey",    "VerifyPIN",        "VerifyAndCachePin", "GetPinInfo",
    "GetCertInfo_UOS",      "SetData",          "GetData",           "Batch_Sign",
    "SetCachePinFlag"};

#define NAME(result, name, arguments) #name,
const Lines tableOrder = {KESTA_TOKEN_ENTRY_POINTS(NAME)};
#undef NAME

Lines LookedUpBefore(const std::string& entry) {
    return {lookUpOrder.begin(), std::find(lookUpOrder.begin(), lookUpOrder.end(), entry)};
}

}  // namespace

TEST(Binding, looks_the_entry_points_up_in_its_own_order) {
    ASSERT_EQ(Initialize(), 0);
    EXPECT_EQ(TheRecorder().Lookups(), lookUpOrder);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(Binding, does_not_resolve_what_it_does_not_call) {
    install::PutLibraryWithUnresolvedFunction();
    EXPECT_EQ(Initialize(), 0);
}

TEST(Binding, keeps_the_entry_points_out_of_everybody_elses_sight) {
    ASSERT_EQ(Initialize(), 0);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "GMWritePKCS7"), nullptr);
}

// ---- What fails it ---------------------------------------------------------------------------

class LibraryWithout : public testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(Binding, LibraryWithout, testing::ValuesIn(lookUpOrder),
                         [](const auto& which) { return which.param; });

TEST_P(LibraryWithout, one_entry_point_fails_the_binding_and_is_closed) {
    install::PutLibraryWithout(GetParam());
    G_LastError = unrelated_code;
    EXPECT_EQ(Initialize(), -101);
    EXPECT_EQ(G_LastError, -101);
    EXPECT_FALSE(g_initFlag);
    EXPECT_FALSE(install::IsOpen());
    EXPECT_EQ(TheRecorder().Lookups(), LookedUpBefore(GetParam()));
    EXPECT_FALSE(LogExists());
}

TEST(Binding, fails_on_an_empty_file) {
    install::TruncateTokenLibrary(0);
    EXPECT_EQ(Initialize(), -101);
    EXPECT_EQ(VerifyPIN("A1"), -101);
}

TEST(Binding, fails_on_a_file_cut_inside_its_headers) {
    install::TruncateTokenLibrary(500);
    EXPECT_EQ(Initialize(), -101);
    EXPECT_EQ(VerifyPIN("A1"), -101);
}

TEST(Binding, fails_on_a_file_cut_inside_its_code) {
    install::TruncateTokenLibrary(8192);
    EXPECT_EQ(Initialize(), -101);
    EXPECT_EQ(VerifyPIN("A1"), -101);
}

TEST(Binding, fails_on_a_text_file) {
    install::PutTextFile();
    EXPECT_EQ(Initialize(), -101);
    EXPECT_EQ(G_LastError, -101);
    EXPECT_FALSE(g_initFlag);
}

// Where nothing is read, the file need not reach.
TEST(Binding, takes_a_library_whose_zeroes_begin_behind_the_files_end) {
    install::PutLibraryWithDistantZeroes();
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(VerifyPIN("A1"), 0);
    EXPECT_EQ(Trace(), (Lines{"VerifyPIN(\"A1\")"}));
}

// The loader takes such a file.
TEST(Binding, takes_a_file_cut_inside_its_last_page) {
    install::PutLibraryCutInItsLastPage();
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(VerifyPIN("A1"), 0);
}

// An upgrade that was interrupted: what the process has loaded still works.
TEST(Binding, keeps_a_loaded_library_whose_file_was_replaced_by_a_partial_copy) {
    ASSERT_EQ(Initialize(), 0);
    install::TruncateTokenLibrary(8192);
    EXPECT_EQ(Initialize(), 0);
    Finalize();
    EXPECT_EQ(VerifyPIN("A1"), 0);
    EXPECT_TRUE(g_initFlag);
    EXPECT_EQ(Trace(), (Lines{"VerifyPIN(\"A1\")"}));
    EXPECT_EQ(install::CloseEntirely(), 3);
}

TEST(Binding, keeps_a_loaded_library_whose_file_is_gone) {
    ASSERT_EQ(Initialize(), 0);
    install::RemoveTokenLibrary();
    Finalize();
    EXPECT_EQ(VerifyPIN("A1"), 0);
}

TEST(Binding, recovers_when_a_complete_library_is_put_in_place) {
    install::PutLibraryWithout("SetCachePinFlag");
    ASSERT_EQ(Initialize(), -101);
    install::PutCompleteLibrary();
    EXPECT_EQ(VerifyPIN("A1"), 0);
    EXPECT_EQ(Trace(), (Lines{"VerifyPIN(\"A1\")"}));
}

// ---- The class -------------------------------------------------------------------------------

TEST(CommonFunction, init_fills_the_table_in_the_contracts_order) {
    CommonFunction table;
    EXPECT_EQ(table.init(), 0);
    ASSERT_NE(table.handle, nullptr);
    for (std::size_t slot = 0; slot < tableOrder.size(); ++slot) {
        EXPECT_EQ(table.entries[slot], dlsym(table.handle, tableOrder[slot].c_str()))
            << tableOrder[slot];
    }
}

TEST(CommonFunction, init_leaves_the_last_error_and_the_flag_to_its_caller) {
    CommonFunction table;
    G_LastError = unrelated_code;
    EXPECT_EQ(table.init(), 0);
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_FALSE(g_initFlag);
}

TEST(CommonFunction, init_stores_minus_101_when_it_fails) {
    CommonFunction table;
    install::RemoveTokenLibrary();
    EXPECT_EQ(table.init(), -101);
    EXPECT_EQ(G_LastError, -101);
    EXPECT_EQ(table.handle, nullptr);
}

TEST(CommonFunction, init_keeps_the_pointers_found_before_the_missing_one) {
    install::PutLibraryWithout("GetLabel");  // the sixth that is looked up, the second slot
    CommonFunction table;
    EXPECT_EQ(table.init(), -101);
    EXPECT_EQ(table.handle, nullptr);
    const Lines found = LookedUpBefore("GetLabel");
    for (std::size_t slot = 0; slot < tableOrder.size(); ++slot) {
        const bool expected = std::count(found.begin(), found.end(), tableOrder[slot]) != 0;
        EXPECT_EQ(table.entries[slot] != nullptr, expected) << tableOrder[slot];
    }
}

TEST(CommonFunction, init_again_opens_again_without_closing) {
    CommonFunction table;
    EXPECT_EQ(table.init(), 0);
    EXPECT_EQ(table.init(), 0);
    EXPECT_EQ(install::CloseEntirely(), 2);
}

TEST(CommonFunction, FreeFunc_closes_the_library_and_keeps_the_pointers) {
    CommonFunction table;
    ASSERT_EQ(table.init(), 0);
    void* const first = table.entries[0];
    EXPECT_EQ(table.FreeFunc(), 0);
    EXPECT_EQ(table.handle, nullptr);
    EXPECT_EQ(table.entries[0], first);
    EXPECT_FALSE(install::IsOpen());
}

TEST(CommonFunction, FreeFunc_on_an_unloaded_instance_does_nothing) {
    CommonFunction table;
    G_LastError = unrelated_code;
    EXPECT_EQ(table.FreeFunc(), 0);
    EXPECT_EQ(table.FreeFunc(), 0);
    EXPECT_EQ(table.handle, nullptr);
    EXPECT_EQ(G_LastError, unrelated_code);
}

TEST(CommonFunction, FreeFunc_of_another_instance_leaves_the_exports_bound) {
    ASSERT_EQ(Initialize(), 0);
    CommonFunction table;
    ASSERT_EQ(table.init(), 0);
    table.FreeFunc();
    EXPECT_EQ(VerifyPIN("A1"), 0);
}

// A client may close the library while a thread of the token library's own still runs.
TEST(Binding, outlives_the_library_that_made_it) {
    const char* const copy = "/tmp/libcopy.so";
    Dl_info original{};
    ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, "Initialize"), &original), 0);
    std::filesystem::copy_file(original.dli_fname, copy);
    void* const library = dlopen(copy, RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_EQ(reinterpret_cast<int (*)()>(dlsym(library, "Initialize"))(), 0);
    dlclose(library);
    ASSERT_EQ(dlopen(copy, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the copy is still there";
    EXPECT_TRUE(install::IsOpen());
}

TEST(Binding, hides_the_librarys_own_state) {
    for (const char* name : {"KESTA_ComFunc", "all_file_list", "g_szLastP10", "g_szLastReq",
                             "g_szLastSN", "isRun", "ReleaseP10Buffer", "g_heapmgr", "g_bufmgr"}) {
        EXPECT_EQ(dlsym(RTLD_DEFAULT, name), nullptr) << name;
    }
    for (const char* name : {"G_LastError", "g_initFlag", "g_WaitEventSlotMap",
                             "_Z8LogEntryPKcS0_z", "_Z6LogHexPKcPKvi"}) {
        EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
    }
}
