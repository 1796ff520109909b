// The cost of a forwarded call in C and through the C++ face, of a library that does nothing: what
// the bindings are measured against. Prints nanoseconds of the processor's time, which other work
// does not lengthen by much.
#include <algorithm>
#include <cstdio>
#include <ctime>

#include "kesta/ukey.hpp"

namespace {

// The best of several rounds, which other work slows least.
template <class Call>
double Nanoseconds(int calls, const Call& call) {
    double best = 1e9;
    for (int round = 0; round < 7; ++round) {
        const std::clock_t start = std::clock();
        for (int i = 0; i < calls; ++i) call();
        best = std::min(best,
                        1e9 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC / calls);
    }
    return best;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: forwarded_bench LIBRARY\n");
        return 2;
    }
    const auto library = kesta::Library::Load(arguments[1]);
    auto* volatile function = library.functions().SetLabel;
    std::printf("C            %8.1f\n",
                Nanoseconds(1000000, [&] { function("SK0001", "a label"); }));
    std::printf("C++ face     %8.1f\n",
                Nanoseconds(1000000, [&] { library.SetLabel("SK0001", "a label"); }));
    return 0;
}
