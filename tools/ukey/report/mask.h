// Names that stand for what must not leave a machine: one for each value, the same throughout.
#ifndef UKEY_REPORT_MASK_H
#define UKEY_REPORT_MASK_H

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ukey {

class Mask {
public:
    // Not masking, values are given as they are; what is hidden is hidden nonetheless.
    explicit Mask(bool masking) : masking_(masking) {}

    // What stands for the value, as in "serial-1"; from now on wherever Text meets it.
    std::string Name(const std::string& kind, const std::string& value);
    // The same, for what is never given: "<key-1: 204 characters>".
    std::string Hidden(const std::string& kind, const std::string& value);

    // Learns the users whose folders below /home the text names.
    void LearnFrom(const std::string& text);
    // The text with its known values replaced.
    std::string Text(const std::string& text) const;

    bool masking() const { return masking_; }

private:
    struct Writing {
        std::string text;
        std::string name;
        bool anywhere;  // also within a word
    };

    const std::string& NameOf(const std::string& kind, const std::string& value);
    const Writing* Longest(std::string_view text, std::size_t at) const;

    const bool masking_;
    std::map<std::string, std::string> names_;  // by value
    std::map<std::string, std::size_t> counts_;
    std::set<std::string> known_;
    std::vector<Writing> writings_;  // of what is known
};

// Who uses this machine, what it is called, where people's files are.
void LearnMachine(Mask& mask);

}  // namespace ukey

#endif
