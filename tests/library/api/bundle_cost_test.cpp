// What Batch_ImportX509Cert costs as a whole, log included.
#include "../unit/cpu_ratio.h"
#include "api_test.h"

namespace {

// One certificate in lines of 64 characters.
std::string wrapped_bundle(std::size_t size) {
    std::string bundle = "SignCert(";
    while (bundle.size() < size) bundle += std::string(64, 'M') + "\r\n";
    return bundle + ")";
}

void import_whole(const std::string& bundle) {
    recorder().forget();
    forget_log();
    ASSERT_EQ(Batch_ImportX509Cert("A1", bundle.c_str()), 0);
    ASSERT_EQ(recorder().calls().size(), 1U);
}

}  // namespace

// Four times the text takes about four times as long; sixteen times, were the cost quadratic.
TEST(BundleCost, is_in_proportion_to_the_length_of_a_wrapped_certificate) {
    const std::string small = wrapped_bundle(1 << 20), large = wrapped_bundle(4 << 20);
    EXPECT_LT(cpu_ratio([&] { import_whole(small); }, [&] { import_whole(large); }), 8);
}
