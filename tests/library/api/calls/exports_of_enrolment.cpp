// Requests, and the import of what comes back.
#include "exports_parts.h"
#include "kesta_unified_zrkukey.h"

namespace calls {
namespace {

std::string or_null(const char* text) {
    return text == nullptr ? "(null)" : text;
}

}  // namespace

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

}  // namespace calls
