// A client that has functions of its own under names that the library exports too. They are
// visible to the dynamic linker, and the library must not take them for its own.
#include <dlfcn.h>

#include "api_test.h"

namespace {
int ownCalls = 0;
}

// The names that the library's own code calls or could be thought to call.
extern "C" {
__attribute__((visibility("default"))) int Initialize(void) {
    return ++ownCalls, 77;
}
__attribute__((visibility("default"))) int Sign(const char*, int, int, const char*, const char*,
                                                char*, unsigned int*) {
    return ++ownCalls, 77;
}
__attribute__((visibility("default"))) int GetData(const char*, unsigned int, char*, int*) {
    return ++ownCalls, 77;
}
__attribute__((visibility("default"))) int GetCertInfo(const char*, unsigned int, void*,
                                                       unsigned int*) {
    return ++ownCalls, 77;
}
__attribute__((visibility("default"))) int VerifyPIN(const char*) {
    return ++ownCalls, 77;
}
__attribute__((visibility("default"))) int SetLabel(const char*, const char*) {
    return ++ownCalls, 77;
}
}

namespace {

// The library's own function, whatever the client calls by that name.
template <class Function>
Function* OfLibrary(const char* name) {
    void* const library = dlopen("libkesta_unified_zrkukey.so", RTLD_LAZY | RTLD_NOLOAD);
    return reinterpret_cast<Function*>(dlsym(library, name));
}

}  // namespace

TEST(ClientsOwnNames, are_not_called_by_the_first_use_of_the_library) {
    unsigned length = 0;
    EXPECT_EQ(GetPrintNumber(nullptr, &length), 0);
    EXPECT_EQ(ownCalls, 0);
    EXPECT_TRUE(g_initFlag);
    EXPECT_EQ(TheRecorder().Lookups().size(), entry_points);
    EXPECT_EQ(Trace(), (Lines{"CheckDeviceEx(&0, zero[396], 1, zero[1024])"}));
}

TEST(ClientsOwnNames, are_seen_in_front_of_the_librarys_by_the_dynamic_linker) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "Initialize"), reinterpret_cast<void*>(&Initialize));
    EXPECT_NE(OfLibrary<int()>("Initialize"), &Initialize);
}

TEST(ClientsOwnNames, are_not_looked_up_in_place_of_entry_points) {
    auto* const verify = OfLibrary<int(const char*)>("VerifyPIN");
    TheRecorder().On("VerifyPIN").Returns(5);
    EXPECT_EQ(verify("A1"), 5);
    auto* const set = OfLibrary<int(const char*, const char*)>("SetLabel");
    EXPECT_EQ(set("A1", "label"), 0);
    EXPECT_EQ(ownCalls, 0);
    EXPECT_EQ(Trace(), (Lines{"VerifyPIN(\"A1\")", "SetLabel(\"A1\", \"label\")"}));
}

TEST(ClientsOwnNames, do_not_replace_the_librarys_use_of_its_own_exports_by_events) {
    unsigned kind = 0, length = 0;
    EXPECT_EQ(WaitForKeyEvent(&kind, nullptr, &length), 0);
    EXPECT_EQ(StopDetectUKey(), 0);
    EXPECT_EQ(ownCalls, 0);
}
