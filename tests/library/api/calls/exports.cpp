#include <algorithm>
#include <cstring>

#include "exports_parts.h"
#include "kesta_unified_zrkukey.h"

namespace calls {

namespace {

const char version[] = "9.2025.0731.3";

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
