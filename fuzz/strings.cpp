// The string classes as a sequence of operations on three strings that share buffers, each held
// against a std::string. An operation is three bytes: what, on which strings, with which number.
#include <array>
#include <string>

#include "fuzz_target.h"
#include "lgn/lgn.h"

namespace {

struct Pair {
    LgnString string;
    std::string model;

    void Check() const {
        FUZZ_EXPECT(string.View() == model);
        FUZZ_EXPECT(string.GetString()[model.size()] == '\0');
        FUZZ_EXPECT(string.GetAllocLength() >= string.GetLength());
    }
};

void FillBuffer(Pair& one, int number) {
    char* const buffer = one.string.GetBuffer(number, LgnString::kZeroUnused);
    for (int i = static_cast<int>(one.model.size()); i < number; ++i)
        FUZZ_EXPECT(buffer[i] == '\0');
    one.string.SetLength(number);
    one.model.resize(static_cast<std::size_t>(number), '\0');
}

void Take(Pair& one, const Pair& other, unsigned what, int number) {
    const auto size = static_cast<std::size_t>(number);
    switch (what % 7) {
        case 0:
            one = other;
            break;
        case 1:
            one.string.Empty(), one.model.clear();
            break;
        case 2:
            one = {other.string.Mid(number, 7),
                   size > other.model.size() ? "" : other.model.substr(size, 7)};
            break;
        case 3: {
            const std::string tail(size % 40, static_cast<char>('a' + number % 26));
            one.string.Append(tail.data(), static_cast<int>(tail.size()));
            one.model += tail;
            break;
        }
        case 4:
            FillBuffer(one, number);
            break;
        case 5: {
            const std::string text = other.model;
            one.string.SetString(text.data(), static_cast<int>(text.size()));
            one.model = text;
            break;
        }
        default:
            one.string.Fork(static_cast<int>(one.model.size()));
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::array<Pair, 3> pairs;
    for (std::size_t i = 0; i + 2 < size && i < 600; i += 3) {
        Take(pairs[data[i + 1] % 3], pairs[data[i + 1] / 3 % 3], data[i], data[i + 2]);
        for (const Pair& pair : pairs) pair.Check();
    }
    return 0;
}
