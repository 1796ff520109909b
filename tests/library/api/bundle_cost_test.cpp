// What Batch_ImportX509Cert costs as a whole, log included.
#include "../unit/cpu_ratio.h"
#include "api_test.h"

namespace {

// One certificate in lines of 64 characters.
std::string WrappedBundle(std::size_t size) {
    std::string bundle = "SignCert(";
    while (bundle.size() < size) bundle += std::string(64, 'M') + "\r\n";
    return bundle + ")";
}

void ImportWhole(const std::string& bundle) {
    TheRecorder().Forget();
    ForgetLog();
    ASSERT_EQ(Batch_ImportX509Cert("A1", bundle.c_str()), 0);
    ASSERT_EQ(TheRecorder().Calls().size(), 1U);
}

}  // namespace

// Four times the text takes about four times as long; sixteen times, were the cost quadratic.
TEST(BundleCost, is_in_proportion_to_the_length_of_a_wrapped_certificate) {
    const std::string small = WrappedBundle(1 << 20), large = WrappedBundle(4 << 20);
    EXPECT_LT(CpuRatio([&] { ImportWhole(small); }, [&] { ImportWhole(large); }), 8);
}
