// The model's rules over texts: requests, escrowed keys, bundles.
#include <algorithm>
#include <cctype>
#include <set>

#include "model.h"

namespace calls {

namespace {

std::string upper(std::string text) {
    for (char& character : text) {
        character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    }
    return text;
}

std::string trimmed(std::string text) {
    const auto blank = [](char character) {
        return std::isspace(static_cast<unsigned char>(character)) != 0;
    };
    while (!text.empty() && blank(text.back())) text.pop_back();
    while (!text.empty() && blank(text.front())) text.erase(0, 1);
    return text;
}

// The next token from position on; position moves behind the separator that ends it.
bool token(const std::string& text, char separator, std::size_t& position, std::string& found) {
    while (position < text.size() && text[position] == separator) ++position;
    if (position >= text.size()) return false;
    found.clear();
    while (position < text.size() && text[position] != separator) found += text[position++];
    ++position;
    return true;
}

struct Parameters {
    std::int32_t certificate = 0, key = 0, hash = 0;
};

// False: a name is none of the three.
bool parse_group(const std::string& group, Parameters& parameters) {
    std::size_t position = 0;
    std::string name, skipped;
    while (token(group, '(', position, name)) {
        const std::string known = upper(trimmed(name));
        std::int32_t* const parameter = known == "CERTTYPE"   ? &parameters.certificate
                                        : known == "KEYTYPE"  ? &parameters.key
                                        : known == "HASHTYPE" ? &parameters.hash
                                                              : nullptr;
        if (parameter == nullptr) return false;
        if (position > group.size()) throw Thrown();
        // The end itself reads as a NUL.
        *parameter = static_cast<std::int32_t>(group.c_str()[position]) - '0';
        if (!token(group, ')', position, skipped)) break;
    }
    return true;
}

std::string request_of(const Asked& asked) {
    return asked.answer.hasRequest ? asked.answer.requestText : "";
}

struct BatchRecord {
    std::int64_t certificate = 0, key = 0, hash = 0;
    bool paired = false;
    std::string bytes() const {
        std::string all =
            recording::BytesOf(certificate) + recording::BytesOf(key) + recording::BytesOf(hash);
        return all + (paired ? '\1' : '\0') + std::string(7, '\0');
    }
};

// False: refused.
bool read_batch(const std::string& information, BatchRecord (&records)[3]) {
    Parameters parameters;
    std::size_t position = 0;
    std::string group;
    int taken = 0, made = 0;
    int remembered = -1;  // the record of the latest group with key type 2 that made one
    std::int32_t remembered_type = 0;
    while (token(information, '|', position, group)) {
        if (taken++ == 3) return false;
        if (!parse_group(group, parameters)) return false;
        const auto [certificate, key, hash] = parameters;
        if (certificate == 3 && key != 2) return false;
        if (key != 2 || remembered < 0 || (remembered_type == 3) == (certificate == 3)) {
            records[made] = {certificate, key, hash, false};
            if (key == 2) {
                remembered = made;
                remembered_type = certificate;
            }
            ++made;
        } else {
            records[remembered].paired = true;
            if (certificate != 3) records[remembered].certificate = certificate;
        }
    }
    return true;
}

}  // namespace

int Model::answer_kept(const char* serial, const char* information, bool buffer, bool& answered) {
    answered = false;
    if (!buffer || !state.kept) return 0;
    const std::string serial_text = serial == nullptr ? "" : serial;
    if (state.kept->information != information || state.kept->serial != serial_text) {
        state.kept.reset();
        return 0;
    }
    answered = true;
    const auto size = static_cast<std::int32_t>(state.kept->requests.size());
    if (static_cast<std::int32_t>(length) < size) {
        length = static_cast<std::uint32_t>(size + 1);
        return store(-404);
    }
    length = static_cast<std::uint32_t>(size);
    write_text(state.kept->requests);
    state.kept.reset();
    return state.last_error;
}

int Model::hand_out_requests(const std::string& requests, const char* serial,
                             const char* information, bool buffer) {
    const auto size = static_cast<std::int32_t>(requests.size());
    if (!buffer) {
        state.kept = State::Kept{requests, information, serial == nullptr ? "" : serial};
        state.remembered = state.kept;
        length = static_cast<std::uint32_t>(size + 1);
        return state.last_error;
    }
    const bool fits = static_cast<std::int32_t>(length) >= size;
    length = static_cast<std::uint32_t>(size);
    if (!fits) return store(-404);
    write_text(requests);
    return state.last_error;
}

int Model::make_requests(const char* serial, const std::string& information,
                         std::string& requests) {
    Parameters parameters;
    std::size_t position = 0;
    std::string group;
    for (int nth = 0; token(information, '|', position, group); ++nth) {
        if (!parse_group(group, parameters)) return refuse();
        if (const int code = forward("VerifyPIN", {text(serial)})) return code;
        const auto number = [](std::int32_t parsed) {
            return value(static_cast<std::uint32_t>(parsed));
        };
        const int code = forward(
            "GMCreatePKCS10", {text(serial), number(parameters.certificate), number(parameters.key),
                               number(parameters.hash), no_request(), pointer(nullptr), value(0)});
        if (code != 0) return code;
        requests += (nth == 0 ? "" : "||") + request_of(seen_.asked[next_ - 1]);
    }
    return 0;
}

int Model::make_batch(const char* serial, int flag, const std::string& information,
                      std::string& requests) {
    BatchRecord made[3];
    if (!read_batch(information, made)) return refuse();
    if (flag != 0 && flag != 1) return refuse();
    if (flag == 1) {
        const int code =
            forward("CustInitCard", {text(serial), value(1), pointer(nullptr), value(0)});
        if (code != 0) return code;
    }
    for (int slot = 0; slot < 3; ++slot) {
        const BatchRecord& record = made[slot];
        if (record.certificate <= 0 || record.key <= 0) continue;
        if (slot == 0 && flag != 1) {
            if (const int code = forward("VerifyPIN", {text(serial)})) return code;
        }
        const int code =
            forward("GMCreatePKCS10Ex",
                    {text(std::string(serial == nullptr ? "" : serial)), memory(record.bytes()),
                     no_request(), value(1), pointer(nullptr), value(0)});
        if (code != 0) return code;
        requests += (slot == 0 ? "" : "||") + request_of(seen_.asked[next_ - 1]);
    }
    return 0;
}

std::string without(std::string text, const std::string& characters) {
    const auto unwanted = [&](char c) { return characters.find(c) != std::string::npos; };
    text.erase(std::remove_if(text.begin(), text.end(), unwanted), text.end());
    return text;
}

std::string key_body(const std::string& key) {
    const std::string header =
        "0000000000000001000000000000000100000000000000000000000000000000"
        "0000000000000273";
    return key.find(header) == std::string::npos ? key : key.substr(80);
}

int Model::import_key(const std::string& serial, std::string key, const std::string& tag) {
    key = without(key, ",");
    log(tag, "strPriKeyTemp:" + key);
    std::string buffer = key_body(key);
    if (buffer.size() > 1024) throw Disagreement("a key this long ends the process");
    buffer.resize(1024);
    return forward("GMImportPriKey", {text(serial), memory(buffer), value(0)});
}

int Model::import_certificate(const Expected& serial, const std::string& certificate) {
    return forward("GMWritePKCS7", {serial, text(certificate), empty_string()});
}

int bundle_kind(const std::string& text) {
    std::size_t parenthesis = text.find('(');
    if (parenthesis == std::string::npos || parenthesis == 0) return 2;
    std::size_t start = 0;
    for (;;) {
        const std::string name =
            upper(parenthesis < start ? "" : text.substr(start, parenthesis - start));
        if (name != "SIGNCERT" && name != "ENCCERT" && name != "ENCPRIKEY") return 1;
        if (parenthesis + 1 > text.size()) return 3;
        const std::size_t bar = text.find('|', parenthesis + 1);
        if (bar == std::string::npos) return 3;
        start = bar + 1;
        if (bar + 2 > text.size()) return 1;
        parenthesis = text.find('(', bar + 2);
        if (parenthesis == std::string::npos) return 1;
    }
}

int Model::import_pass(const std::string& serial, const std::string& bundle,
                       const std::string& opener, const std::string& tag, bool& imported) {
    std::set<std::size_t> handled;  // none twice: the way back to position 1 would never end
    std::size_t position = 0;
    for (;;) {
        if (position > bundle.size()) return 0;
        const std::size_t start = bundle.find(opener, position);
        if (start == std::string::npos || !handled.insert(start).second) return 0;
        const std::size_t end = bundle.find(')', start);
        std::string content;
        position = 1;
        if (end != std::string::npos) {
            content = bundle.substr(start + opener.size(), end - start - opener.size());
            position = end + 2;
        }
        const bool key = opener == "EncPriKey(";
        const int code =
            key ? import_key(serial, content, "CZRKUSBKey::Batch_ImportX509Cert  strPriKeyTemp:")
                : import_certificate(text(serial), content);
        if (code != 0) {
            log(tag, "end, err: " + std::to_string(code) + ", Cert " +
                         (key ? "GMImportPriKey" : "GMWritePKCS7") + " error.");
            return code;
        }
        imported = true;
    }
}

int Model::import_bundle(const std::string& serial, std::string bundle) {
    store(0);
    bundle = without(bundle, ",\r\n");
    const std::string tag = "Batch_ImportX509Cert";
    log("CZRKUSBKey::Batch_ImportX509Cert", "begin, strP7: " + bundle);
    const int kind = bundle_kind(bundle);
    if (kind == 1) return refuse();
    if (kind == 2) {
        const int code = import_certificate(text(serial), bundle);
        log(tag, "end, err: " + std::to_string(code) + ", Cert GMWritePKCS7 error.");
        return code;
    }
    bool imported = false;
    if (const int code = import_pass(serial, bundle, "SignCert(", tag, imported)) return code;
    if (const int code = import_pass(serial, bundle, "EncPriKey(", tag, imported)) return code;
    const int code = import_pass(serial, bundle, "EncCert(", "CGMUsbKeyCommonEx", imported);
    if (code != 0) return code;
    return imported ? 0 : refuse();
}

}  // namespace calls
