#include "certificate_import.h"

#include <string.h>

#include <cstdlib>
#include <cstring>

#include "import_text.h"
#include "kesta/places.h"

namespace kesta {

namespace {

constexpr const char* kBundleTag = "Batch_ImportX509Cert";
constexpr const char* kCertificateEnd = "end, err: %d, Cert GMWritePKCS7 error.";

int writeCertificate(const Token& token, const char* szSN, const LgnString& certificate) {
    LgnString output;  // the token library may fill it; what it says is not used
    return token.GMWritePKCS7(szSN, certificate.GetString(), output.Object());
}

// Logs an escrowed key and imports it. Its text is gone from memory when that is done.
class KeyImport {
public:
    KeyImport(const char* text, int length) : m_text(text, length, _lgnBufferManager) {
        // Works in place, so there is one buffer to clear.
        removeCommas(m_text);
    }
    ~KeyImport() {
        explicit_bzero(const_cast<char*>(m_text.GetString()),
                       static_cast<std::size_t>(m_text.GetAllocLength()));
        explicit_bzero(m_key, sizeof m_key);
    }
    KeyImport(const KeyImport&) = delete;
    KeyImport& operator=(const KeyImport&) = delete;

    int run(const Token& token, const char* szSN, const char* tag) {
        LogEntry(tag, "strPriKeyTemp:%s", m_text.GetString());
        const std::string_view body = keyBody(m_text.View());
        // Cutting a key short would store a wrong one; there is no code for this.
        if (body.size() > sizeof m_key) std::abort();
        std::memcpy(m_key, body.data(), body.size());
        return token.GMImportPriKey(szSN, &m_key[0], 0);
    }

private:
    LgnString m_text;
    char m_key[limits::kKeyBuffer] = {};  // without a NUL when the body fills it
};

// Imports a bundle's sections, kind by kind.
class BundleImport {
public:
    BundleImport(const Token& token, const char* szSN, std::string_view bundle)
        : m_token(token), m_serial(szSN), m_bundle(bundle) {}

    int run() {
        int result = importCertificates("SignCert(", kBundleTag);
        if (result == KESTA_OK) result = importKeys();
        // Encryption certificates log under a tag of their own.
        if (result == KESTA_OK) result = importCertificates("EncCert(", "CGMUsbKeyCommonEx");
        if (result == KESTA_OK && !m_imported) result = setLastError(KESTA_BAD_ARGUMENT);
        return result;
    }

private:
    int importCertificates(std::string_view opener, const char* tag) {
        return importSections(opener, tag, kCertificateEnd, [this](std::string_view content) {
            return writeCertificate(
                m_token, m_serial,
                LgnString(content.data(), static_cast<int>(content.size()), _lgnBufferManager));
        });
    }

    int importKeys() {
        constexpr const char* kEnd = "end, err: %d, Cert GMImportPriKey error.";
        return importSections("EncPriKey(", kBundleTag, kEnd, [this](std::string_view content) {
            return KeyImport(content.data(), static_cast<int>(content.size()))
                .run(m_token, m_serial, "CZRKUSBKey::Batch_ImportX509Cert  strPriKeyTemp:");
        });
    }

    // end: the record of a failure, with the result.
    template <typename Import>
    int importSections(std::string_view opener, const char* tag, const char* end, Import import) {
        SectionScanner sections(m_bundle, opener);
        std::string_view content;
        while (sections.next(content)) {
            const int result = import(content);
            if (result != KESTA_OK) {
                LogEntry(tag, end, result);
                return result;
            }
            m_imported = true;
        }
        return KESTA_OK;
    }

    const Token& m_token;
    const char* m_serial;
    std::string_view m_bundle;
    bool m_imported = false;
};

}  // namespace

int importCertificate(const Token& token, const char* szSN, const char* strP7) {
    LgnString certificate = copyOf(strP7);
    removeCommas(certificate);
    removeLineBreaks(certificate);
    return writeCertificate(token, szSN, certificate);
}

int importEncryption(const Token& token, const char* szSN, const char* strP7,
                     const char* strPriKey) {
    const LgnString serial = copyOf(szSN);
    // Line breaks stay in this certificate; the token library takes them here.
    LgnString certificate = copyOf(strP7);
    removeCommas(certificate);
    const int result =
        KeyImport(strPriKey, LGN::TextLength(strPriKey))
            .run(token, serial.GetString(), "CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:");
    if (result != KESTA_OK) return result;
    return writeCertificate(token, serial.GetString(), certificate);
}

int importBundle(const Token& token, const char* szSN, const char* strP7) {
    const LgnString serial = copyOf(szSN);
    setLastError(KESTA_OK);
    LgnString bundle = copyOf(strP7);
    removeCommas(bundle);
    removeLineBreaks(bundle);
    LogEntry("CZRKUSBKey::Batch_ImportX509Cert", "begin, strP7: %s", bundle.GetString());
    switch (classifyBundle(bundle.View())) {
        case BundleKind::kMalformed:
            return setLastError(KESTA_BAD_ARGUMENT);
        case BundleKind::kSingleCertificate: {
            const int result = writeCertificate(token, serial.GetString(), bundle);
            // Written on success too: readers of the log look for it.
            LogEntry(kBundleTag, kCertificateEnd, result);
            return result;
        }
        case BundleKind::kSections:
            break;
    }
    return BundleImport(token, serial.GetString(), bundle.View()).run();
}

}  // namespace kesta
