// Arguments at random: short ones that meet each other often, and now and then the extremes.
#include <limits>

#include "exports.h"

namespace calls {

char client_buffer[buffer_size];
unsigned client_length = 0;
unsigned client_kind = 0;

namespace {

const std::string header =
    "0000000000000001000000000000000100000000000000000000000000000000"
    "0000000000000273";

}  // namespace

const char* Arguments::say_text(std::string text) {
    say(text.size() > 160 ? "text of " + std::to_string(text.size()) : '"' + text + '"');
    return texts_.emplace_back(std::move(text)).c_str();
}

int Arguments::say(int number) {
    say(std::to_string(number));
    return number;
}

const char* Arguments::sometimes_null(bool may_be_null, const char* (Arguments::*other)(bool)) {
    if (may_be_null && draw_.once_in(12)) {
        say("null");
        return nullptr;
    }
    return (this->*other)(false);
}

const char* Arguments::serial(bool may_be_null) {
    if (may_be_null) return sometimes_null(true, &Arguments::serial);
    if (state_.remembered && draw_.once_in(2)) return say_text(state_.remembered->serial);
    static const std::string some[] = {"A1", "A1", "A1", "a1", "K2", "", std::string(90, 'S')};
    return say_text(draw_.of(some));
}

const char* Arguments::any_text(bool may_be_null) {
    if (may_be_null) return sometimes_null(true, &Arguments::any_text);
    static const std::string some[] = {"",        "w",    "two words", "a\r\nb\r\nc",
                                       "\r",      "\n\n", "%s%n",      "\xE4\xB8\xAD",
                                       "[x]\r\n", "a||b", "|",         std::string(180, 'l')};
    return say_text(draw_.of(some));
}

std::string Arguments::group() {
    static const char* const names[] = {"CertType", "KeyType",     "HashType",  "certtype",
                                        "KEYTYPE",  " CertType\t", "hashType ", "\v KeyType"};
    static const char* const odd_names[] = {"", " ", "Cert Type", "CertTyp", "CertTypes", "Colour"};
    static const char* const values[] = {"1", "1",  "2", "2",  "3", "0",
                                         "9", "12", "",  " 1", "x", "/"};
    std::string made;
    for (unsigned items = 1 + draw_.below(3); items > 0; --items) {
        made += draw_.once_in(25) ? draw_.of(odd_names) : draw_.of(names);
        made += draw_.once_in(15) ? "((" : draw_.once_in(60) ? "" : "(";
        made += draw_.of(values);
        made += draw_.once_in(15) ? "))" : draw_.once_in(60) ? "" : ")";
    }
    return made;
}

const char* Arguments::information(bool may_be_null) {
    if (may_be_null) return sometimes_null(true, &Arguments::information);
    if (state_.remembered && draw_.once_in(2)) return say_text(state_.remembered->information);
    static const char* const pairs[] = {
        "CertType(1)KeyType(2)HashType(1)|CertType(3)KeyType(2)HashType(1)",
        "CertType(3)KeyType(2)|certtype(1)",
        "CertType(1)KeyType(2)",
        "CertType(1)KeyType(2)|KeyType(1)",
        "CertType(3)KeyType(1)",
        "KeyType(2)|CertType(1)|CertType(3)",
        "||",
        "CertType",
        "CertType("};
    if (draw_.once_in(4)) return say_text(draw_.of(pairs));
    static const char* const joints[] = {"|", "|", "|", "||", "|||"};
    std::string made;
    for (unsigned groups = draw_.below(5); groups > 0; --groups) {
        if (!made.empty() || draw_.once_in(9)) made += draw_.of(joints);
        made += group();
    }
    return say_text(made);
}

const char* Arguments::certificate(bool may_be_null) {
    if (may_be_null) return sometimes_null(true, &Arguments::certificate);
    static const std::string some[] = {"",
                                       "MIIC",
                                       "MI,IC\r\nAB,\r\n",
                                       ",,,",
                                       "\r\n",
                                       "a,b\nc\rd",
                                       std::string(1500, 'M') + ",\r\n" + std::string(1500, 'N')};
    return say_text(draw_.of(some));
}

std::string Arguments::key_text() {
    switch (draw_.below(8)) {
        case 0:
            return header;
        case 1:
            return header + "body";
        case 2:
            return "key" + header + "body";
        case 3:
            return header.substr(0, 40) + "," + header.substr(40) + ",bo,dy";
        case 4:
            return header.substr(1) + "body";
        case 5:
            return "k,e\r\ny";
        default:
            return "K" + std::to_string(draw_.below(100));
    }
}

const char* Arguments::key() {
    if (draw_.once_in(12)) {
        say("null");
        return nullptr;
    }
    // 1024 characters fill the buffer; there is no room for one more.
    if (draw_.once_in(8)) return say_text(header + std::string(1023 + draw_.below(2), 'k'));
    if (draw_.once_in(8)) return say_text(std::string(1023 + draw_.below(2), 'k') + ",");
    return say_text(key_text());
}

const char* Arguments::bundle() {
    if (draw_.once_in(12)) return certificate();
    static const char* const names[] = {"SignCert", "EncCert",   "EncPriKey", "SignCert",
                                        "EncCert",  "EncPriKey", "signcert",  "ENCPRIKEY"};
    static const char* const odd_names[] = {"Other", "", "XSignCert"};
    static const char* const contents[] = {"A", "B", "", "C,D", "E\r\nF", "G(H", "SignCert(I"};
    static const char* const closers[] = {")", ")", ")", ")", ")", ")", ")|", "))", "", ")x"};
    std::string made;
    for (unsigned sections = draw_.below(5); sections > 0; --sections) {
        if (!made.empty()) made += draw_.once_in(6) ? "" : draw_.once_in(20) ? "||" : "|";
        const std::string name = draw_.once_in(25) ? draw_.of(odd_names) : draw_.of(names);
        made += name + (draw_.once_in(40) ? "" : "(");
        made += name == "EncPriKey" && draw_.once_in(2) ? key_text() : draw_.of(contents);
        made += draw_.of(closers);
    }
    return say_text(made);
}

const char* Arguments::list() {
    static const char* const some[] = {"x||y||z", "x||y||z", "", "||", "|||", "||||", "abc", "a|b"};
    if (draw_.once_in(8)) {
        say("null");
        return nullptr;
    }
    return say_text(draw_.of(some));
}

const char* Arguments::data_name() {
    if (draw_.once_in(12)) {
        say("null");
        return nullptr;
    }
    static const unsigned sizes[] = {10, 11, 12, 13, 16, 10, 16, 9, 17, 0};
    return say_text(std::string(draw_.of(sizes), 'n'));
}

const char* Arguments::data_value() {
    if (draw_.once_in(12)) {
        say("null");
        return nullptr;
    }
    static const unsigned sizes[] = {0, 1, 5, 299, 300, 300, 301, 302};
    return say_text(std::string(draw_.of(sizes), 'v'));
}

int Arguments::integer() {
    static const int some[] = {0,
                               1,
                               2,
                               3,
                               -1,
                               100,
                               -101,
                               std::numeric_limits<int>::max(),
                               std::numeric_limits<int>::min()};
    return say(draw_.once_in(3) ? static_cast<int>(draw_.next()) : draw_.of(some));
}

void* Arguments::some_pointer() {
    static char places[3];
    if (draw_.once_in(4)) {
        say("null");
        return nullptr;
    }
    say("pointer");
    return &places[draw_.below(std::size(places))];
}

char* Arguments::buffer() {
    const bool probes = draw_.once_in(4);
    say(probes ? "null" : "buffer");
    return probes ? nullptr : client_buffer;
}

unsigned* Arguments::length(bool may_be_null) {
    if (may_be_null && draw_.once_in(12)) {
        say("null");
        return nullptr;
    }
    static const int some[] = {
        -1, std::numeric_limits<int>::min(), 17, 40, 199, 200, 201, 202, 512, 4096};
    const auto kept = state_.kept ? static_cast<int>(state_.kept->requests.size()) : 3;
    int capacity = 9000;
    if (draw_.once_in(2)) capacity = static_cast<int>(draw_.below(12));
    if (draw_.once_in(4)) capacity = draw_.of(some);
    if (draw_.once_in(3)) capacity = kept - 1 + static_cast<int>(draw_.below(3));
    client_length = static_cast<unsigned>(capacity);
    say("&" + std::to_string(capacity));
    return &client_length;
}

}  // namespace calls
