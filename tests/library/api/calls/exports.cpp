#include "exports.h"

#include <algorithm>
#include <cstring>

#include "kesta_unified_zrkukey.h"

namespace calls {

namespace {

const char version[] = "9.2025.0731.3";

std::uint32_t size_of(const char* text) {
    return text == nullptr ? 0 : static_cast<std::uint32_t>(std::strlen(text));
}
std::string or_empty(const char* text) {
    return text == nullptr ? "" : text;
}
std::string or_null(const char* text) {
    return text == nullptr ? "(null)" : text;
}
std::string begin_with_length(const char* what, unsigned number) {
    char body[60];
    std::snprintf(body, sizeof body, "Begin %s = %08x", what, number);
    return body;
}

// One that takes no argument and asks for nothing.
template <int (*function)()>
Prepared alone(int (*expected)(Model&)) {
    return {[] { return function(); }, expected};
}

// A text constant without its NUL, logged.
Prepared constant(Arguments& draw, int (*function)(char*, unsigned*), const char* tag,
                  const char* name, const char* begin, const std::string& text) {
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length(false);
    return {[=] { return function(buffer, length); },
            [=](Model& m) {
                if (begin != nullptr) m.log(tag, begin_with_length(begin, m.length));
                m.initialise_on_first_use();
                m.store(0);
                m.length = static_cast<std::uint32_t>(text.size());
                if (buffer != nullptr) {
                    m.write(text);
                    m.log(tag, std::string(name) + ": " + text);
                }
                return m.log_end(tag, 0);
            }};
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

Prepared last_code(Arguments& draw) {
    unsigned* const length = draw.length();
    return {[=] {
                GetLastErrCode(length);
                return 0;
            },
            [=](Model& m) {
                if (length == nullptr) {
                    m.refuse();
                } else {
                    m.length = static_cast<std::uint32_t>(m.state.last_error);
                }
                return 0;
            }};
}

Prepared error_message(Arguments& draw) {
    const int code = draw.integer();
    char* const buffer = draw.buffer();
    int* const length = draw.signed_length();
    return {[=] { return GetErrorMsg(code, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (length == nullptr) return m.refuse();
                if (buffer == nullptr) {
                    m.length = 200;
                    return 0;
                }
                if (!m.state.bound) return m.store(-101);
                const Asked& asked = m.ask("X_ErrorConvert_UOS", {value(code)});
                const std::string text = asked.answer.messageIsNull ? "" : asked.answer.messageText;
                const auto n = static_cast<std::int32_t>(text.size());
                const bool fits = n < static_cast<std::int32_t>(m.length);
                m.length = static_cast<std::uint32_t>(n + 1);
                if (!fits) return m.store(-404);
                m.write_text(text);
                return 0;
            }};
}

Prepared print_number(Arguments& draw) {
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length(false);
    return {[=] { return GetPrintNumber(buffer, length); },
            [=](Model& m) {
                m.log("GetPrintNumber", begin_with_length("pnSNLen", m.length));
                m.initialise_on_first_use();
                m.store(0);
                const int code = m.forward("CheckDeviceEx",
                                           {calls::length(0), zeroes(396), value(1), zeroes(1024)});
                if (code == 0) {
                    const std::string serial = m.answered_text(3, 1024);
                    m.length = static_cast<std::uint32_t>(serial.size());
                    if (buffer != nullptr) m.write_text(serial);
                }
                if (buffer != nullptr) m.log("GetPrintNumber", "m_SN: " + m.buffer_text());
                return m.log_end("GetPrintNumber", code);
            }};
}

Prepared vendor(Arguments& draw) {
    const int language = draw.small_integer();
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length(false);
    return {[=] { return GetVendorInfo(language, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                m.store(0);
                if (language < 0 || language > 2) return m.store(-300);
                const std::string name =
                    language == 2 ? "Quillorn Corporation" : "岚岫诚科技股份有限公司";
                if (buffer != nullptr) {
                    m.write_text(name);
                } else {
                    m.length = static_cast<std::uint32_t>(name.size());
                }
                return 0;
            }};
}

// Begin, the serial number where it is logged, one call of the token, End.
int logged(Model& m, const char* tag, bool serial_too, const char* serial, bool refuses,
           const char* entry, const std::vector<Expected>& arguments) {
    m.log(tag, "Begin");
    if (serial_too) m.log_hexadecimal("szSN:", serial);
    if (refuses && !m.state.initialised) return -109;
    m.initialise_on_first_use();
    m.store(0);
    return m.log_end(tag, m.forward(entry, arguments));
}

Prepared change_pin(Arguments& draw) {
    const char* const serial = draw.serial(false);
    return {[=] { return ChangePin(serial); },
            [=](Model& m) {
                return logged(m, "ChangePin", true, serial, false, "ChangePin", {text(serial)});
            }};
}

std::vector<Expected> card(const char* serial, const void* parameter) {
    return {text(serial), value(0), pointer(parameter), value(0)};
}

Prepared init_key(Arguments& draw) {
    const char* const serial = draw.serial(false);
    return {[=] { return InitUKey(serial); },
            [=](Model& m) {
                return logged(m, "InitUKey", true, serial, true, "CustInitCard",
                              card(serial, nullptr));
            }};
}

Prepared test_init_key(Arguments& draw) {
    const char* const serial = draw.serial();
    void* const parameter = draw.some_pointer();
    return {[=] { return TestInitUKey(serial, parameter); },
            [=](Model& m) {
                return logged(m, "TestInitUKey", false, serial, false, "CustInitCard",
                              card(serial, parameter));
            }};
}

// Forwards whatever it is given; clears the last error first or not.
int passed_on(Model& m, const char* entry, const std::vector<Expected>& arguments) {
    m.initialise_on_first_use();
    return m.forward(entry, arguments);
}

Prepared verify_pin(Arguments& draw) {
    const char* const serial = draw.serial();
    return {[=] { return VerifyPIN(serial); },
            [=](Model& m) { return passed_on(m, "VerifyPIN", {text(serial)}); }};
}

Prepared verify_and_cache(Arguments& draw) {
    const char* const serial = draw.serial();
    void* const parameter = draw.some_pointer();
    return {[=] { return TestVerifyAndCachePin(serial, parameter); },
            [=](Model& m) {
                return passed_on(m, "VerifyAndCachePin", {text(serial), pointer(parameter)});
            }};
}

Prepared pin_info(Arguments& draw) {
    const char* const serial = draw.serial();
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length();
    return {[=] { return GetPinInfo(serial, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (length == nullptr) return m.refuse();
                if (buffer == nullptr) return m.answer_size(8);
                const int code = m.forward(
                    "GetPinInfo", {text(serial), pointer(buffer), calls::length(m.length, length)});
                if (m.state.bound) m.answered_directly(1, 2);
                return code;
            }};
}

Prepared cache_flag(Arguments& draw) {
    const char* const serial = draw.serial();
    const int flag = draw.integer();
    return {[=] { return SetCachePinFlag(serial, flag); },
            [=](Model& m) {
                m.store(0);
                return m.forward("SetCachePinFlag", {text(serial), value(flag)});
            }};
}

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

std::uint32_t separators(const std::string& list) {
    std::uint32_t count = 0;
    for (std::size_t at = list.find("||"); at != std::string::npos; at = list.find("||", at + 2)) {
        ++count;
    }
    return count;
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

// Two texts that must be there, passed on in the order given or the other way round.
Prepared two_texts(Arguments& draw, int (*function)(const char*, const char*), const char* entry,
                   bool reversed) {
    const char* const one = draw.serial();
    const char* const two = draw.any_text();
    return {[=] { return function(one, two); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (one == nullptr || two == nullptr) return m.refuse();
                return reversed ? m.forward(entry, {text(two), text(one)})
                                : m.forward(entry, {text(one), text(two)});
            }};
}

Prepared wait_for_event(Arguments& draw) {
    char* const buffer = draw.buffer();
    unsigned* const length = draw.length(false);
    return {[=] { return WaitForKeyEvent(&client_kind, buffer, length); },
            [=](Model& m) {
                m.log("SKF_WaitForDevEvent", "begin");
                m.initialise_on_first_use();
                if (buffer != nullptr) return m.wait();
                m.log("SKF_WaitForDevEvent", "end, G_LastError = 0, line = 560");
                return m.answer_size(17);
            }};
}

Prepared request(Arguments& draw) {
    const char* const serial = draw.serial();
    const char* const information = draw.information();
    char* const buffer = draw.buffer();
    int* const length = draw.signed_length();
    return {[=] { return GenerateCertRequest(serial, information, buffer, length); },
            [=](Model& m) {
                m.initialise_on_first_use();
                m.store(0);
                if (serial == nullptr || information == nullptr || length == nullptr) {
                    return m.refuse();
                }
                bool answered = false;
                int code = m.answer_kept(serial, information, buffer != nullptr, answered);
                if (answered) return code;
                std::string requests;
                code = m.make_requests(serial, information, requests);
                if (code != 0) return code;
                return m.hand_out_requests(requests, serial, information, buffer != nullptr);
            }};
}

Prepared batch_request(Arguments& draw) {
    const char* const serial = draw.serial();
    const int flag = draw.small_integer();
    const char* const information = draw.information();
    char* const buffer = draw.buffer();
    int* const length = draw.signed_length();
    return {
        [=] { return Batch_InitAndGenerateCertRequest(serial, flag, information, buffer, length); },
        [=](Model& m) {
            m.log("Batch_InitAndGenerateCertRequest",
                  "Begin szSN = " + or_null(serial) + ",requestInfo = " + or_null(information));
            m.initialise_on_first_use();
            if (length == nullptr || information == nullptr) return m.refuse();
            bool answered = false;
            int code = m.answer_kept(serial, information, buffer != nullptr, answered);
            if (answered) return code;
            m.store(0);
            std::string requests;
            code = m.make_batch(serial, flag, information, requests);
            if (code != 0) return code;
            return m.hand_out_requests(requests, serial, information, buffer != nullptr);
        }};
}

Prepared import_one(Arguments& draw) {
    const char* const serial = draw.serial();
    const char* const p7 = draw.certificate();
    return {[=] { return ImportX509Cert(serial, p7); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (serial == nullptr || p7 == nullptr) return m.refuse();
                m.state.kept.reset();
                return m.import_certificate(text(serial), without(p7, ",\r\n"));
            }};
}

Prepared import_encryption(Arguments& draw) {
    const char* const serial = draw.serial();
    const char* const p7 = draw.certificate();
    const char* const key = draw.key();
    return {[=] { return ImportEncX509Cert(serial, p7, key); },
            [=](Model& m) {
                m.initialise_on_first_use();
                if (serial == nullptr || p7 == nullptr || key == nullptr) return m.refuse();
                m.state.kept.reset();
                m.store(0);
                const int code =
                    m.import_key(serial, key, "CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:");
                return code != 0 ? code : m.import_certificate(text(serial), without(p7, ","));
            }};
}

Prepared import_several(Arguments& draw) {
    const char* const serial = draw.serial(false);
    const char* const bundle = draw.bundle();
    return {[=] { return Batch_ImportX509Cert(serial, bundle); },
            [=](Model& m) {
                m.initialise_on_first_use();
                return bundle == nullptr ? m.refuse() : m.import_bundle(serial, bundle);
            }};
}

Prepared driver_check(Arguments& draw) {
    const int mode = draw.draw().once_in(2) ? 1 : draw.integer();
    return {[=] { return CheckDriverIntegrity(mode); },
            [=](Model& m) {
                m.initialise_on_first_use();
                return m.store(mode == 1 ? 0 : -300);
            }};
}

Prepared finalize(Arguments&) {
    return {[] {
                Finalize();
                return 0;
            },
            [](Model& m) {
                m.state.initialised = false;
                return m.store(0);
            }};
}

Prepared remove_pin(Arguments&) {
    return alone<RemovePinCache>([](Model& m) {
        m.initialise_on_first_use();
        m.store(0);
        return m.forward("GM_RemoveUserPin", {});
    });
}

int unsupported(Model&) {
    return -300;
}

}  // namespace

const std::vector<Row>& rows() {
    // clang-format off
    static const std::vector<Row> all = {
        {"Initialize", [](Arguments&) { return alone<Initialize>([](Model& m) { return m.initialise(); }); }},
        {"Finalize", finalize},
        {"GetLastErrCode", last_code},
        {"GetErrorMsg", error_message},
        {"GetDriverVersion", [](Arguments& draw) { return constant(draw, GetDriverVersion, "GetDriverVersion", "pszVersion", nullptr, version); }},
        {"GetDllVersion", [](Arguments& draw) { return constant(draw, GetDllVersion, "GetDllVersion", "pszVersion", "pnVersionLen", version); }},
        {"GetVidAndPid", [](Arguments& draw) { return constant(draw, GetVidAndPid, "GetVidAndPid", "pszVidPid", "pnVidPidLen", "2E5A&0301"); }},
        {"GetPrintNumber", print_number},
        {"GetVendorInfo", vendor},
        {"ChangePin", change_pin},
        {"InitUKey", init_key},
        {"TestInitUKey", test_init_key},
        {"VerifyPIN", verify_pin},
        {"TestVerifyAndCachePin", verify_and_cache},
        {"GetPinInfo", pin_info},
        {"SetCachePinFlag", cache_flag},
        {"RemovePinCache", remove_pin},
        {"GetCert", certificate},
        {"GetCertDN", certificate_name},
        {"GetCertInfo", certificate_info},
        {"DelCertAndTempKey", delete_certificate},
        {"RegisterCert", [](Arguments&) { return alone<RegisterCert>(unsupported); }},
        {"UnregisterCert", [](Arguments&) { return alone<UnregisterCert>(unsupported); }},
        {"RepairDriver", [](Arguments&) { return alone<RepairDriver>(unsupported); }},
        {"Sign", sign},
        {"SignHash", sign_hash},
        {"Batch_Sign", batch_sign},
        {"AsymDec", decrypt},
        {"GetLabel", get_label},
        {"SetLabel", [](Arguments& draw) { return two_texts(draw, SetLabel, "SetLabel", false); }},
        {"SetData", set_data},
        {"GetData", get_data},
        {"SetCharset", [](Arguments& draw) { return two_texts(draw, SetCharset, "UOS_SetCharset", true); }},
        {"SetLanguage", [](Arguments& draw) { return two_texts(draw, SetLanguage, "UOS_SetLanguage", true); }},
        {"WaitForKeyEvent", wait_for_event},
        {"StopDetectUKey", [](Arguments&) { return alone<StopDetectUKey>([](Model& m) { return m.stop(); }); }},
        {"GenerateCertRequest", request},
        {"Batch_InitAndGenerateCertRequest", batch_request},
        {"ImportX509Cert", import_one},
        {"ImportEncX509Cert", import_encryption},
        {"Batch_ImportX509Cert", import_several},
        {"CheckDriverIntegrity", driver_check},
    };
    // clang-format on
    return all;
}

}  // namespace calls
