// Each allocation fails once while a JSON value is made, copied and written: it ends in bad_alloc,
// not in a crash. A program of its own, for the operators that it takes the place of.
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "kit/json.h"

namespace {

long left = 0;  // allocations until one fails; 0: none does

std::string Made() {
    const std::string text(40, 'x');
    kit::Json inner = {{"type", text}, {"keyType", text}};
    inner.update({{"subject", text}, {"more", kit::Json{{"deep", text}}}});
    kit::Json all = kit::Json::array();
    all.push_back(inner);
    all.push_back(nullptr);
    return all.Text();
}

}  // namespace

void* operator new(std::size_t size) {
    if (left > 0 && --left == 0) throw std::bad_alloc();
    return std::malloc(size);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

int main() {
    const std::string usual = Made();
    for (long nth = 1;; ++nth) {
        try {
            left = nth;
            const std::string text = Made();
            if (left == 0) return 3;  // it failed, and nobody told
            left = 0;
            std::printf("%ld allocations\n", nth - 1);
            return text == usual && nth > 20 ? 0 : 2;
        } catch (const std::bad_alloc&) {
            left = 0;
        }
    }
}
