#include "kit/language.h"

#include <iconv.h>
#include <langinfo.h>
#include <libintl.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <regex>

#include "kit/text.h"

namespace kit {
namespace {

constexpr const char* kDomain = "kesta";
constexpr const char* kUtf8 = "UTF-8";

std::string charset = kUtf8;
bool english = true;  // until the locale is asked for

// Where a system has no translations of its own these are in the catalogue.
[[maybe_unused]] constexpr const char* kSystemTexts[] = {N_("No such file or directory"),
                                                         N_("Permission denied"),
                                                         N_("Is a directory"),
                                                         N_("Not a directory"),
                                                         N_("Operation not permitted"),
                                                         N_("No space left on device"),
                                                         N_("Read-only file system"),
                                                         N_("Input/output error"),
                                                         N_("File exists"),
                                                         N_("Connection refused"),
                                                         N_("Invalid argument"),
                                                         N_("Bad file descriptor"),
                                                         N_("Disk quota exceeded"),
                                                         N_("File too large"),
                                                         N_("Too many open files"),
                                                         N_("Killed"),
                                                         N_("Segmentation fault"),
                                                         N_("Aborted"),
                                                         N_("Terminated"),
                                                         N_("Bus error")};

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

// The locale that the environment names for a category.
std::string Named(const char* category) {
    for (const char* const name : {"LC_ALL", category, "LANG"}) {
        const std::string value = Variable(name);
        if (!value.empty()) return value;
    }
    return {};
}

bool Convertible(const std::string& name) {
    const iconv_t converter = ::iconv_open(name.c_str(), kUtf8);
    if (converter == reinterpret_cast<iconv_t>(-1)) return false;
    ::iconv_close(converter);
    return true;
}

bool IsPlain(int category) {
    const char* const used = std::setlocale(category, nullptr);
    return used == nullptr || std::strcmp(used, "C") == 0;
}

// A locale that is not installed still says by its name what the person reads.
void UseNamesOfMissingLocales() {
    const std::string messages = Named("LC_MESSAGES");
    const bool plain = messages.empty() || messages == "C" || messages == "POSIX";
    if (!plain && IsPlain(LC_MESSAGES) && std::setlocale(LC_MESSAGES, "C.UTF-8") != nullptr &&
        Variable("LANGUAGE").empty()) {
        ::setenv("LANGUAGE", messages.substr(0, messages.find_first_of(".@")).c_str(), 1);
    }
    if (!IsPlain(LC_CTYPE)) return;
    const std::string types = Named("LC_CTYPE");
    const std::size_t dot = types.find('.');
    if (dot == std::string::npos || std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) return;
    charset = types.substr(dot + 1, types.find('@') - dot - 1);
}

// Below the prefix that the program is in, a build's as well as an installation's.
std::string CatalogueFolder() {
    char path[4096];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) return "/usr/share/locale";
    std::string folder(path, static_cast<std::size_t>(length));
    for (int i = 0; i < 2; ++i) folder.resize(folder.rfind('/'));
    return folder + "/share/locale";
}

// What cannot be converted becomes "?", or ends it.
bool Convert(const char* to, const char* from, std::string_view text, bool replace,
             std::string& converted) {
    const int before = errno;
    const iconv_t converter = ::iconv_open(to, from);
    if (converter == reinterpret_cast<iconv_t>(-1)) return false;
    std::string source(text);
    char* in = source.data();
    std::size_t left = source.size();
    bool whole = true;
    for (bool flushed = false; whole && !flushed;) {
        char block[4096];
        char* out = block;
        std::size_t room = sizeof block;
        flushed = left == 0;
        const std::size_t result = ::iconv(converter, flushed ? nullptr : &in, &left, &out, &room);
        const bool stuck = result == static_cast<std::size_t>(-1) && errno != E2BIG;
        converted.append(block, sizeof block - room);
        if (!stuck) continue;
        whole = replace;
        converted += '?';
        const std::size_t skipped = CharacterSize({in, left});
        in += skipped;
        left -= skipped;
    }
    ::iconv_close(converter);
    errno = before;  // messages that tell of it are on their way
    return whole;
}

}  // namespace

void UsePersonsLocale() {
    english = false;
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    const std::string named = ::nl_langinfo(CODESET);
    // The C locale says nothing of what a terminal shows.
    if (named != "ANSI_X3.4-1968") charset = named;
    UseNamesOfMissingLocales();
    if (!Convertible(charset)) charset = kUtf8;
    if (::strcasecmp(charset.c_str(), kUtf8) == 0 || ::strcasecmp(charset.c_str(), "utf8") == 0) {
        charset = kUtf8;
    }
    ::bindtextdomain(kDomain, CatalogueFolder().c_str());
    ::bind_textdomain_codeset(kDomain, kUtf8);
}

const char* _(const char* sentence) {
    // The translation of nothing is the catalogue's own head.
    return english || *sentence == '\0' ? sentence : ::dgettext(kDomain, sentence);
}

std::string LanguageName() {
    // TRANSLATORS: the language of the catalogue, by the name that token libraries use.
    return _("en_US");
}

bool SpeaksChinese() {
    return LanguageName() == "zh_CN";
}

const std::string& CharsetName() {
    return charset;
}

std::string ToUtf8(std::string_view text) {
    std::string converted;
    const bool foreign = charset != kUtf8 && !IsUtf8(text);
    return foreign && Convert(kUtf8, charset.c_str(), text, false, converted) ? converted
                                                                              : std::string(text);
}

std::string FromUtf8(std::string_view text) {
    std::string converted;
    return charset != kUtf8 && Convert(charset.c_str(), kUtf8, text, true, converted)
               ? converted
               : std::string(text);
}

std::string Recognised(const std::string& said, const std::vector<const char*>& sentences) {
    for (const char* const sentence : sentences) {
        std::string pattern =
            std::regex_replace(sentence, std::regex(R"([.*+?()\[\]|^$])"), R"(\$&)");
        pattern = std::regex_replace(pattern, std::regex(R"(\{\d\})"), "([\\s\\S]+)");
        std::smatch match;
        if (!std::regex_match(said, match, std::regex(pattern))) continue;
        std::string parts[4];
        for (std::size_t i = 1; i < match.size() && i <= std::size(parts); ++i) {
            parts[i - 1] = Recognised(match.str(i), sentences);
        }
        return Fill(_(sentence), {parts[0], parts[1], parts[2], parts[3]});
    }
    return said;
}

std::string SystemText(int number) {
    return ToUtf8(_(std::strerror(number)));
}

}  // namespace kit
