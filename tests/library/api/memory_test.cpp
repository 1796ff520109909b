// Exports whose memory runs out: whichever of their allocations fails, the exception passes and
// nothing stays behind.
#include <new>

#include "api_test.h"
#include "lgn_exception.h"

namespace {

// Fails each allocation of a call in turn; tells how many there are.
template <class Call>
int FailingAllocations(Call call) {
    constexpr int most = 100;
    for (int nth = 1; nth < most; ++nth) {
        const FailingAllocation failing(nth);
        bool thrown = false;
        try {
            call();
        } catch (const std::bad_alloc&) {
            thrown = true;
        } catch (const LGN::CLgnException& exception) {
            EXPECT_EQ(exception.code, kOutOfMemory);
            thrown = true;
        }
        EXPECT_EQ(failing.Happened(), thrown) << nth;
        if (!thrown) return nth - 1;
    }
    ADD_FAILURE() << "the call never succeeds";
    return most;
}

// The strings of the library take theirs from malloc, which a sanitizer does not let fail.
constexpr int AtLeast([[maybe_unused]] int all, [[maybe_unused]] int withoutStrings) {
#ifdef KESTA_SANITIZED
    return withoutStrings;
#else
    return all;
#endif
}

template <class Call>
void ExpectClean(int wanted, Call call) {
    Initialize();
    EXPECT_GE(FailingAllocations(call), wanted);
    EXPECT_EQ(TheRecorder().LiveRequests(), 0);
    ExpectNoLeak<20>([&call] {  // each of them fails every allocation
        FailingAllocations(call);
        ForgetLog();
    });
}

}  // namespace

TEST(MemoryThatRunsOut, in_SignHash_leaves_neither_work_nor_copies_behind) {
    CanaryBuffer signature(16);
    unsigned length = 16;
    ExpectClean(AtLeast(3, 1), [&] { SignHash("A1", 1, 2, "hash", 3, signature.data(), &length); });
}

TEST(MemoryThatRunsOut, in_AsymDec_leaves_neither_work_nor_copies_behind) {
    CanaryBuffer plain(16);
    TheRecorder().On("GMUSBKeyAsymDec2").Writes(4, "plain").WritesNumber(5, 5);
    unsigned length = 16;
    ExpectClean(AtLeast(3, 1), [&] {
        length = 16;
        AsymDec("A1", 1, 2, "a\r\nb", plain.data(), &length);
    });
}

TEST(MemoryThatRunsOut, in_AsymDec_writes_nothing) {
    CanaryBuffer plain(16);
    unsigned length = 16;
    Initialize();
    const FailingAllocation failing(1);
    EXPECT_ANY_THROW(AsymDec("A1", 1, 2, "cipher", plain.data(), &length));
    EXPECT_TRUE(plain.Untouched());
    EXPECT_EQ(length, 16U);
    EXPECT_EQ(Trace(), Lines{});
}

TEST(MemoryThatRunsOut, in_a_batch_request_leaves_no_returned_text_behind) {
    TheRecorder().On("GMCreatePKCS10Ex").Request(std::string(100, 'R'));
    int length = 0;
    ExpectClean(AtLeast(5, 3), [&] {
        Batch_InitAndGenerateCertRequest("A1", 0, "CertType(1)KeyType(2)|HashType(1)", nullptr,
                                         &length);
    });
}

TEST(MemoryThatRunsOut, in_a_bundle_leaves_no_text_behind) {
    ExpectClean(AtLeast(5, 1),
                [] { Batch_ImportX509Cert("A1", "SignCert(A,)|EncPriKey(K)|EncCert(B)"); });
}

#ifndef KESTA_SANITIZED
TEST(MemoryThatRunsOut, in_Batch_ImportX509Cert_before_its_begin_is_not_logged) {
    Initialize();
    const FailingAllocation failing(1);
    EXPECT_EQ(CodeThrownBy([] { Batch_ImportX509Cert("A1", "cert"); }), kOutOfMemory);
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(Trace(), Lines{});
}
#endif
