// Certificates, signatures, decryption, label and data objects.
#include <cstring>

#include "exports_parts.h"
#include "kesta_unified_zrkukey.h"

namespace calls {
namespace {

std::uint32_t size_of(const char* text) {
    return text == nullptr ? 0 : static_cast<std::uint32_t>(std::strlen(text));
}
std::string or_empty(const char* text) {
    return text == nullptr ? "" : text;
}

// A text read from the token into memory of a fixed size, handed out by the rule for buffers.
// at_short: what is written besides the length where the buffer is too small.
int read_text(Model& m, const char* entry, const std::vector<Expected>& arguments,
              std::size_t argument, std::size_t size, const char* buffer, int at_short) {
    m.store(0);
    if (const int code = m.forward(entry, arguments)) return code;
    const std::string text = m.answered_text(argument, size);
    const auto n = static_cast<std::int32_t>(text.size());
    if (buffer == nullptr) {
        m.length = static_cast<std::uint32_t>(n + 1);
        return 0;
    }
    if (n > static_cast<std::int32_t>(m.length)) {
        m.length = static_cast<std::uint32_t>(n + at_short);
        return m.store(-404);
    }
    m.length = static_cast<std::uint32_t>(n);
    m.write_text(text);
    return 0;
}

// The same where the token tells the length. No more than the caller's capacity is written.
int read_told_text(Model& m, std::size_t argument, std::size_t size, const char* buffer) {
    const std::uint32_t told = m.answered_length(argument + 1, static_cast<std::uint32_t>(size));
    if (buffer == nullptr) {
        m.length = told + 1;
        return 0;
    }
    const std::uint32_t capacity = m.length;
    m.length = told;
    if (static_cast<std::int32_t>(capacity) < static_cast<std::int32_t>(told)) return m.store(-404);
    m.write_text(m.answered_text(argument, size).substr(0, capacity));
    return 0;
}

std::uint32_t separators(const std::string& list) {
    std::uint32_t count = 0;
    for (std::size_t at = list.find("||"); at != std::string::npos; at = list.find("||", at + 2)) {
        ++count;
    }
    return count;
}

}  // namespace

Prepared certificate(Arguments& draw) {
    const char* const serial = draw.serial();
    const unsigned one = draw.number(), two = draw.number();
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length();
    return {[=] { return GetCert(serial, one, two, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (length == nullptr || serial == nullptr) return m.refuse();
                const int code = m.forward("GetCertInfo", {text(serial), value(one), value(two),
                                                           zeroes(4096), calls::length(4096)});
                return code != 0 ? code : read_told_text(m, 3, 4096, buffer);
            }};
}

Prepared certificate_name(Arguments& draw) {
    const char* const serial = draw.serial();
    const unsigned one = draw.number(), two = draw.number();
    char* const buffer = draw.buffer();
    int* const length = draw.signed_length();
    return {[=] { return GetCertDN(serial, one, two, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (length == nullptr || serial == nullptr) return m.refuse();
                return read_text(m, "GM_GetCertDN",
                                 {text(serial), value(one), value(two), zeroes(1024)}, 3, 1024,
                                 buffer, 0);
            }};
}

Prepared certificate_info(Arguments& draw) {
    const char* const serial = draw.serial();
    const unsigned one = draw.number();
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length();
    return {[=] { return GetCertInfo(serial, one, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (length == nullptr) return m.refuse();
                if (buffer == nullptr) return m.answer_size(1280);
                const int code = m.forward(
                    "GetCertInfo_UOS",
                    {text(serial), value(one), pointer(buffer), calls::length(m.length, length)});
                if (m.state.bound) m.answered_directly(2, 3);
                return code;
            }};
}

Prepared delete_certificate(Arguments& draw) {
    const char* const serial = draw.serial();
    const unsigned one = draw.number(), two = draw.number();
    return {[=] { return DelCertAndTempKey(serial, one, two); },
            [=](Model& m) {
                return passed_on(m, "DelCertAndTempKey", {text(serial), value(one), value(two)});
            }};
}

Prepared sign(Arguments& draw) {
    const char* const serial = draw.serial();
    const int one = draw.integer(), two = draw.integer();
    const char* const data = draw.any_text();
    const char* const warning = draw.any_text();
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length();
    return {[=] { return Sign(serial, one, two, data, warning, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (data == nullptr || length == nullptr || warning == nullptr) return m.refuse();
                if (buffer == nullptr) return m.answer_size((size_of(data) + 4096) * 2);
                const int warned = m.forward("SetWarningMsg", {text(serial), text(warning)});
                if (warned != 0) return warned;
                const int code = m.forward("GMUsbKeyCriticalSign",
                                           {text(serial), value(one), value(two), text(data),
                                            pointer(buffer), calls::length(m.length, length)});
                m.answered_directly(4, 5);
                return code;
            }};
}

Prepared sign_hash(Arguments& draw) {
    const char* const serial = draw.serial();
    const int one = draw.integer(), two = draw.integer();
    const char* const hash = draw.any_text();
    const int three = draw.integer();
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length();
    return {[=] { return SignHash(serial, one, two, hash, three, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (length == nullptr || hash == nullptr) return m.refuse();
                const std::uint32_t size = (size_of(hash) + 4096) * 2;
                if (buffer == nullptr) return m.answer_size(size);
                m.store(0);
                const int code =
                    m.forward("GMUsbKeyCommonSign",
                              {text(or_empty(serial)), value(one), value(two), text(hash),
                               value(three), work_buffer(), calls::length(m.length, length)});
                if (!m.state.bound) return code;
                m.answered_directly(-1, 6);
                if (code == 0) m.write_text(m.answered_text(5, size));
                return code;
            }};
}

Prepared batch_sign(Arguments& draw) {
    const unsigned flags = draw.number();
    void* const second = draw.some_pointer();
    const int third = draw.integer(), fourth = draw.integer();
    const char* const data = draw.any_text();
    void* const sixth = draw.some_pointer();
    void* const seventh = draw.some_pointer();
    const int eighth = draw.integer(), ninth = draw.integer();
    const char* const list = draw.list();
    const int eleventh = draw.integer();
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length();
    return {
        [=] {
            return Batch_Sign(flags, second, third, fourth, data, sixth, seventh, eighth, ninth,
                              list, eleventh, buffer, length);
        },
        [=](Model& m) {
            m.initialise_on_first_use();
            if (length == nullptr) return m.refuse();
            std::uint32_t size = data == nullptr ? 0 : size_of(data) + 2048;
            if (list != nullptr) size += (size_of(list) + 2048) * separators(list);
            if (buffer == nullptr) return m.answer_size(size * 2);
            if ((flags & 1) != 0 && (second == nullptr || sixth == nullptr || data == nullptr)) {
                return m.refuse();
            }
            const int code =
                m.forward("Batch_Sign", {value(flags), pointer(second), value(third), value(fourth),
                                         text(data), pointer(sixth), pointer(seventh),
                                         value(eighth), value(ninth), text(list), value(eleventh),
                                         pointer(buffer), calls::length(m.length, length)});
            if (m.state.bound) m.answered_directly(11, 12);
            return code;
        }};
}

Prepared decrypt(Arguments& draw) {
    const char* const serial = draw.serial();
    const int one = draw.integer();
    const unsigned two = draw.number();
    const char* const cipher = draw.any_text();
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length();
    return {[=] { return AsymDec(serial, one, two, cipher, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (length == nullptr || cipher == nullptr) return m.refuse();
                m.store(0);
                const std::uint32_t size = (size_of(cipher) + 4096) * 2;
                if (buffer == nullptr) return m.answer_size(size);
                const int code =
                    m.forward("GMUSBKeyAsymDec2",
                              {text(or_empty(serial)), value(one), value(two),
                               text(without(cipher, "\r\n")), work_buffer(), calls::length(size)});
                return code != 0 ? code : read_told_text(m, 4, size, buffer);
            }};
}

Prepared get_label(Arguments& draw) {
    const char* const serial = draw.serial();
    char* const buffer = draw.buffer();
    int* const length = draw.signed_length();
    return {[=] { return GetLabel(serial, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (length == nullptr || serial == nullptr) return m.refuse();
                if (*serial == '\0') return m.refuse();
                return read_text(m, "GetLabel", {text(serial), zeroes(512)}, 1, 512, buffer, 0);
            }};
}

bool is_data_name(const char* name) {
    return name != nullptr && size_of(name) >= 10 && size_of(name) <= 16;
}

Prepared set_data(Arguments& draw) {
    const char* const name = draw.data_name();
    const unsigned number = draw.number();
    const char* const content = draw.data_value();
    return {[=] { return SetData(name, number, content); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (!is_data_name(name) || content == nullptr || size_of(content) > 300) {
                    return m.refuse();
                }
                return m.forward("SetData", {text(name), value(number), text(content)});
            }};
}

Prepared get_data(Arguments& draw) {
    const char* const name = draw.data_name();
    const unsigned number = draw.number();
    char* const buffer = draw.buffer();
    int* const length = draw.signed_length();
    return {[=] { return GetData(name, number, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (length == nullptr || !is_data_name(name)) return m.refuse();
                return read_text(m, "GetData", {text(name), value(number), zeroes(260)}, 2, 260,
                                 buffer, 1);
            }};
}

}  // namespace calls
