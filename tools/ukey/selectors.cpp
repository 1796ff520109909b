#include "selectors.h"

#include <algorithm>
#include <map>

namespace ukey {
namespace {

using Words = std::map<std::string, int>;

const Words& CertTypes() {
    static const Words words = {{"sign", 1}, {"enc", 3}};
    return words;
}
const Words& KeyTypes() {
    static const Words words = {{"rsa", 1}, {"sm2", 2}};
    return words;
}
const Words& HashTypes() {
    static const Words words = {{"sha1", 1}, {"sha256", 2}, {"sm3", 3}};
    return words;
}

std::string Listed(const Words& words) {
    std::string text;
    for (const auto& [word, number] : words) {
        text += (text.empty() ? "" : ", ") + word + " (" + std::to_string(number) + ")";
    }
    return Fill(_("{1} or a number"), {text});
}

// A word of the list, or a number that the token library may know.
int Parse(const Words& words, const std::string& what, const std::string& text) {
    const auto found = words.find(text);
    if (found != words.end()) return found->second;
    const bool digits = !text.empty() && text.size() <= 9 &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits)
        throw UsageError(Fill(_("{1} is \"{2}\"; it takes {3}"), {what, text, Listed(words)}));
    return std::stoi(text);
}

void AddWordOption(const Options& options, const char* name, int& value, const Words& words,
                   const char* sentence) {
    std::string form;
    for (const auto& word : words) form += word.first + "|";
    options.Read(
        name, [&value, &words, name](const std::string& text) { value = Parse(words, name, text); },
        (form + "N").c_str(), sentence);
}

std::string Word(const Words& words, int number) {
    const auto found = std::find_if(words.begin(), words.end(),
                                    [number](const auto& word) { return word.second == number; });
    return found == words.end() ? std::to_string(number) : found->first;
}

}  // namespace

std::string CertTypeWord(int type) {
    return Word(CertTypes(), type);
}
std::string KeyTypeWord(int algorithm) {
    return Word(KeyTypes(), algorithm);
}

std::string Pair::Words() const {
    return CertTypeWord(type) + " " + KeyTypeWord(algorithm);
}

void AddPairOptions(const Options& options, Pair& pair) {
    AddWordOption(
        options, "--type", pair.type, CertTypes(),
        Fill(_("Kind of the key pair, by default {1}"), {CertTypeWord(pair.type)}).c_str());
    AddWordOption(
        options, "--key-type", pair.algorithm, KeyTypes(),
        Fill(_("Algorithm of the key pair, by default {1}"), {KeyTypeWord(pair.algorithm)})
            .c_str());
}

void AddAlgorithmOptions(const Options& options, int& algorithm, int& hashType) {
    AddWordOption(
        options, "--key-type", algorithm, KeyTypes(),
        Fill(_("Algorithm of the key pair, by default {1}"), {KeyTypeWord(algorithm)}).c_str());
    AddWordOption(options, "--hash-type", hashType, HashTypes(),
                  N_("Algorithm of the hash, by default sm3 for sm2 and sha256 for rsa"));
}

int HashTypeFor(int algorithm, int hashType) {
    constexpr int kRsa = 1;
    if (hashType != 0) return hashType;
    return algorithm == kRsa ? HashTypes().at("sha256") : HashTypes().at("sm3");
}

kesta::RequestGroup ParseGroup(const std::string& text) {
    const std::size_t first = text.find(':');
    const std::size_t second =
        first == std::string::npos ? std::string::npos : text.find(':', first + 1);
    if (second == std::string::npos) {
        throw UsageError(
            Fill(_("--group is \"{1}\"; it takes TYPE:KEY:HASH, as in sign:sm2:sm3"), {text}));
    }
    kesta::RequestGroup group;
    group.certType = Parse(CertTypes(), "TYPE of --group", text.substr(0, first));
    group.keyType = Parse(KeyTypes(), "KEY of --group", text.substr(first + 1, second - first - 1));
    group.hashType = Parse(HashTypes(), "HASH of --group", text.substr(second + 1));
    return group;
}

}  // namespace ukey
