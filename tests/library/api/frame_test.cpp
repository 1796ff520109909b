// What all exports share: the last error, the flag, first use.
#include <set>

#include "api_test.h"
#include "every_export.h"
#include "kesta/ukey/functions.hpp"

namespace {

// Every export leaves these two alone unless it says otherwise.
struct Before {
    Before() { G_LastError = unrelated_code; }
};

}  // namespace

TEST(Frame, starts_uninitialised_and_without_error) {
    EXPECT_EQ(G_LastError, 0);
    EXPECT_FALSE(g_initFlag);
    EXPECT_FALSE(install::IsOpen());
    EXPECT_EQ(sizeof g_initFlag, 1U);
    EXPECT_EQ(sizeof G_LastError, 4U);
}

TEST(Frame, calls_every_function_of_the_public_header) {
#define NAME(name) #name,
    const std::set<std::string> declared = {KESTA_UKEY_FUNCTIONS(NAME)};
#undef NAME
    std::set<std::string> called;
    for (const Export& each : EveryExport()) called.insert(each.name);
    EXPECT_EQ(called, declared);
    EXPECT_EQ(EveryExport().size(), declared.size());
}

TEST(Initialize, binds_the_token_library_and_sets_the_flag) {
    const Before before;
    EXPECT_EQ(Initialize(), 0);
    EXPECT_TRUE(g_initFlag);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_TRUE(install::IsOpen());
    EXPECT_EQ(Trace(), Lines{});
    EXPECT_FALSE(LogExists());
}

TEST(Initialize, clears_the_last_error_before_it_binds) {
    const Before before;
    int seen = unrelated_code;
    TheRecorder().WhenLookedUp([&seen] { seen = G_LastError; });
    Initialize();
    EXPECT_EQ(seen, 0);
}

TEST(Initialize, sets_the_flag_after_it_has_bound) {
    bool seen = true;
    TheRecorder().WhenLookedUp([&seen] { seen = g_initFlag; });
    Initialize();
    EXPECT_FALSE(seen);
    EXPECT_TRUE(g_initFlag);
}

TEST(Initialize, without_the_library_file_is_minus_101) {
    install::RemoveTokenLibrary();
    const Before before;
    EXPECT_EQ(Initialize(), -101);
    EXPECT_EQ(G_LastError, -101);
    EXPECT_FALSE(g_initFlag);
    EXPECT_FALSE(LogExists());
}

TEST(Initialize, while_initialised_binds_a_second_time) {
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(TheRecorder().Lookups().size(), 2 * entry_points);
    EXPECT_EQ(install::CloseEntirely(), 2);
}

TEST(Initialize, that_fails_while_initialised_leaves_the_flag_set) {
    ASSERT_EQ(Initialize(), 0);
    install::CloseEntirely();
    install::RemoveTokenLibrary();
    EXPECT_EQ(Initialize(), -101);
    EXPECT_TRUE(g_initFlag);
    EXPECT_EQ(VerifyPIN("A1"), -101);
    // No other function tries again.
    install::PutCompleteLibrary();
    EXPECT_EQ(VerifyPIN("A1"), -101);
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(VerifyPIN("A1"), 0);
}

TEST(Initialize, can_be_repeated_after_a_failure) {
    install::RemoveTokenLibrary();
    ASSERT_EQ(Initialize(), -101);
    install::PutCompleteLibrary();
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_TRUE(g_initFlag);
}

TEST(Finalize, clears_the_flag_and_the_last_error_and_unloads_nothing) {
    ASSERT_EQ(Initialize(), 0);
    G_LastError = unrelated_code;
    Finalize();
    EXPECT_FALSE(g_initFlag);
    EXPECT_EQ(G_LastError, 0);
    EXPECT_TRUE(install::IsOpen());
    EXPECT_FALSE(LogExists());
}

TEST(Finalize, before_any_initialisation_initialises_nothing) {
    G_LastError = unrelated_code;
    Finalize();
    EXPECT_EQ(G_LastError, 0);
    EXPECT_FALSE(g_initFlag);
    EXPECT_EQ(TheRecorder().Lookups(), Lines{});
}

TEST(Finalize, makes_the_next_export_open_the_library_again) {
    ASSERT_EQ(Initialize(), 0);
    Finalize();
    EXPECT_EQ(VerifyPIN("A1"), 0);
    EXPECT_TRUE(g_initFlag);
    EXPECT_EQ(TheRecorder().Lookups().size(), 2 * entry_points);
    EXPECT_EQ(install::CloseEntirely(), 2);
}

TEST(GetLastErrCode, reports_the_last_error_and_leaves_it) {
    G_LastError = -404;
    unsigned code = 0;
    GetLastErrCode(&code);
    EXPECT_EQ(code, 0xFFFFFE6CU);
    EXPECT_EQ(G_LastError, -404);
    EXPECT_FALSE(LogExists());
}

TEST(GetLastErrCode, with_a_null_pointer_stores_minus_401_for_the_next_one) {
    GetLastErrCode(nullptr);
    EXPECT_EQ(G_LastError, -401);
    unsigned code = 0;
    GetLastErrCode(&code);
    EXPECT_EQ(static_cast<int>(code), -401);
}

TEST(GetLastErrCode, reports_the_result_of_the_latest_export) {
    TheRecorder().On("VerifyPIN").Returns(0x63C3);
    EXPECT_EQ(VerifyPIN("A1"), 0x63C3);
    unsigned code = 0;
    GetLastErrCode(&code);
    EXPECT_EQ(code, 0x63C3U);
}

// ---- First use -------------------------------------------------------------------------------

class ExportThatInitialises : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Frame, ExportThatInitialises,
                         testing::ValuesIn(ExportsWhere([](const Export& which) {
                             return which.initialises;
                         })),
                         ExportName());

TEST_P(ExportThatInitialises, binds_the_library_on_first_use) {
    GetParam().Make();
    EXPECT_TRUE(g_initFlag);
    EXPECT_EQ(TheRecorder().Lookups().size(), entry_points);
}

TEST_P(ExportThatInitialises, binds_again_after_Finalize) {
    Initialize();
    Finalize();
    GetParam().Make();
    EXPECT_TRUE(g_initFlag);
    EXPECT_EQ(TheRecorder().Lookups().size(), 2 * entry_points);
}

class ExportThatInitialisesOnce : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Frame, ExportThatInitialisesOnce,
                         testing::ValuesIn(ExportsWhere([](const Export& which) {
                             return which.name != "Initialize";
                         })),
                         ExportName());

TEST_P(ExportThatInitialisesOnce, does_not_bind_while_the_flag_is_set) {
    Initialize();
    GetParam().Make();
    EXPECT_EQ(TheRecorder().Lookups().size(), entry_points);
}

class ExportThatNeverInitialises : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Frame, ExportThatNeverInitialises,
                         testing::ValuesIn(ExportsWhere([](const Export& which) {
                             return !which.initialises;
                         })),
                         ExportName());

TEST_P(ExportThatNeverInitialises, leaves_the_library_unbound) {
    EXPECT_EQ(GetParam().Make(), GetParam().withoutToken);
    EXPECT_FALSE(g_initFlag);
    EXPECT_EQ(TheRecorder().Lookups(), Lines{});
}

TEST(ExportsThatNeverInitialise, are_exactly_seven) {
    Lines names;
    for (const Export& which : ExportsWhere([](const Export& e) { return !e.initialises; })) {
        names.push_back(which.name);
    }
    EXPECT_EQ(names, (Lines{"Finalize", "GetLastErrCode", "InitUKey", "SetCachePinFlag",
                            "RegisterCert", "UnregisterCert", "RepairDriver"}));
}

class ExportThatIsObsolete : public testing::TestWithParam<Export> {};
INSTANTIATE_TEST_SUITE_P(Frame, ExportThatIsObsolete,
                         testing::ValuesIn(ExportsWhere([](const Export& which) {
                             return which.withoutToken == -300;
                         })),
                         ExportName());

TEST_P(ExportThatIsObsolete, returns_minus_300_and_leaves_the_last_error) {
    const Before before;
    EXPECT_EQ(GetParam().Make(), -300);
    EXPECT_EQ(G_LastError, unrelated_code);
    EXPECT_FALSE(LogExists());
}

TEST(InitUKey, before_initialisation_returns_minus_109_without_storing_it) {
    const Before before;
    EXPECT_EQ(InitUKey("A1"), -109);
    EXPECT_EQ(G_LastError, unrelated_code);
}
