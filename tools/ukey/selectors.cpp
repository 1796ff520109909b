#include "selectors.h"

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
    return text + " or a number";
}

// A word of the list, or a number that the token library may know.
int Parse(const Words& words, const std::string& what, const std::string& text) {
    const auto found = words.find(text);
    if (found != words.end()) return found->second;
    const bool digits = !text.empty() && text.size() <= 9 &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits) throw UsageError(what + " is \"" + text + "\"; it takes " + Listed(words));
    return std::stoi(text);
}

void AddWordOption(CLI::App& command, const std::string& option, int& value, const Words& words,
                   const std::string& description) {
    std::string metavar;
    for (const auto& word : words) metavar += word.first + "|";
    command
        .add_option_function<std::string>(
            option,
            [&value, &words, option](const std::string& text) {
                value = Parse(words, option, text);
            },
            description)
        ->type_name(metavar + "N");
}

std::string Word(const Words& words, int number) {
    for (const auto& [word, value] : words) {
        if (value == number) return word;
    }
    return std::to_string(number);
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

void AddPairOptions(CLI::App& command, Pair& pair) {
    AddWordOption(command, "--type", pair.type, CertTypes(),
                  "Kind of the key pair, by default " + CertTypeWord(pair.type));
    AddWordOption(command, "--key-type", pair.algorithm, KeyTypes(),
                  "Algorithm of the key pair, by default " + KeyTypeWord(pair.algorithm));
}

void AddAlgorithmOptions(CLI::App& command, int& algorithm, int& hashType) {
    AddWordOption(command, "--key-type", algorithm, KeyTypes(),
                  "Algorithm of the key pair, by default " + KeyTypeWord(algorithm));
    AddWordOption(command, "--hash-type", hashType, HashTypes(),
                  "Algorithm of the hash, by default sm3 for sm2 and sha256 for rsa");
}

int HashTypeFor(int algorithm, int hashType) {
    constexpr int kRsa = 1;
    if (hashType != 0) return hashType;
    return algorithm == kRsa ? HashTypes().at("sha256") : HashTypes().at("sm3");
}

void AddPinOption(CLI::App& command, PinRule& rule) {
    command.add_flag("--no-pin", rule.skip, "Do not verify the PIN before");
}

void VerifyFirst(Session& session, const PinRule& rule, const std::string& serial) {
    if (!rule.skip) session.library().VerifyPIN(serial);
}

kesta::RequestGroup ParseGroup(const std::string& text) {
    const std::size_t first = text.find(':');
    const std::size_t second =
        first == std::string::npos ? std::string::npos : text.find(':', first + 1);
    if (second == std::string::npos) {
        throw UsageError("--group is \"" + text + "\"; it takes TYPE:KEY:HASH, as in sign:sm2:sm3");
    }
    kesta::RequestGroup group;
    group.certType = Parse(CertTypes(), "TYPE of --group", text.substr(0, first));
    group.keyType = Parse(KeyTypes(), "KEY of --group", text.substr(first + 1, second - first - 1));
    group.hashType = Parse(HashTypes(), "HASH of --group", text.substr(second + 1));
    return group;
}

}  // namespace ukey
