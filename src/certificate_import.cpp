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

int WriteCertificate(const Token& token, const char* szSN, const LgnString& certificate) {
    LgnString output;  // the token library may fill it; what it says is not used
    return token.GMWritePKCS7(szSN, certificate.GetString(), output.Object());
}

// Logs an escrowed key and imports it. Its text is gone from memory when that is done.
class KeyImport {
public:
    KeyImport(const char* text, int length) : text_(text, length, _lgnBufferManager) {
        // Works in place, so there is one buffer to clear.
        RemoveCommas(text_);
    }
    ~KeyImport() {
        explicit_bzero(const_cast<char*>(text_.GetString()),
                       static_cast<std::size_t>(text_.GetAllocLength()));
        explicit_bzero(key_, sizeof key_);
    }
    KeyImport(const KeyImport&) = delete;
    KeyImport& operator=(const KeyImport&) = delete;

    int Run(const Token& token, const char* szSN, const char* tag) {
        LogEntry(tag, "strPriKeyTemp:%s", text_.GetString());
        const std::string_view body = KeyBody(text_.View());
        // Cutting a key short would store a wrong one; there is no code for this.
        if (body.size() > sizeof key_) std::abort();
        std::memcpy(key_, body.data(), body.size());
        return token.GMImportPriKey(szSN, &key_[0], 0);
    }

private:
    LgnString text_;
    char key_[limits::kKeyBuffer] = {};  // without a NUL when the body fills it
};

// Imports a bundle's sections, kind by kind.
class BundleImport {
public:
    BundleImport(const Token& token, const char* szSN, std::string_view bundle)
        : token_(token), serial_(szSN), bundle_(bundle) {}

    int Run() {
        int result = ImportCertificates("SignCert(", kBundleTag);
        if (result == KESTA_OK) result = ImportKeys();
        // Encryption certificates log under a tag of their own.
        if (result == KESTA_OK) result = ImportCertificates("EncCert(", "CGMUsbKeyCommonEx");
        if (result == KESTA_OK && !imported_) result = SetLastError(KESTA_BAD_ARGUMENT);
        return result;
    }

private:
    int ImportCertificates(std::string_view opener, const char* tag) {
        return ImportSections(opener, tag, kCertificateEnd, [this](std::string_view content) {
            return WriteCertificate(
                token_, serial_,
                LgnString(content.data(), static_cast<int>(content.size()), _lgnBufferManager));
        });
    }

    int ImportKeys() {
        constexpr const char* kEnd = "end, err: %d, Cert GMImportPriKey error.";
        return ImportSections("EncPriKey(", kBundleTag, kEnd, [this](std::string_view content) {
            return KeyImport(content.data(), static_cast<int>(content.size()))
                .Run(token_, serial_, "CZRKUSBKey::Batch_ImportX509Cert  strPriKeyTemp:");
        });
    }

    // end: the record of a failure, with the result.
    template <typename Import>
    int ImportSections(std::string_view opener, const char* tag, const char* end, Import import) {
        SectionScanner sections(bundle_, opener);
        std::string_view content;
        while (sections.Next(content)) {
            const int result = import(content);
            if (result != KESTA_OK) {
                LogEntry(tag, end, result);
                return result;
            }
            imported_ = true;
        }
        return KESTA_OK;
    }

    const Token& token_;
    const char* serial_;
    std::string_view bundle_;
    bool imported_ = false;
};

}  // namespace

int ImportCertificate(const Token& token, const char* szSN, const char* strP7) {
    LgnString certificate = CopyOf(strP7);
    RemoveCommas(certificate);
    RemoveLineBreaks(certificate);
    return WriteCertificate(token, szSN, certificate);
}

int ImportEncryption(const Token& token, const char* szSN, const char* strP7,
                     const char* strPriKey) {
    const LgnString serial = CopyOf(szSN);
    // Line breaks stay in this certificate; the token library takes them here.
    LgnString certificate = CopyOf(strP7);
    RemoveCommas(certificate);
    const int result =
        KeyImport(strPriKey, LGN::TextLength(strPriKey))
            .Run(token, serial.GetString(), "CZRKUSBKey::ImportEncX509Cert  strPriKeyTemp:");
    if (result != KESTA_OK) return result;
    return WriteCertificate(token, serial.GetString(), certificate);
}

int ImportBundle(const Token& token, const char* szSN, const char* strP7) {
    const LgnString serial = CopyOf(szSN);
    SetLastError(KESTA_OK);
    LgnString bundle = CopyOf(strP7);
    RemoveCommas(bundle);
    RemoveLineBreaks(bundle);
    LogEntry("CZRKUSBKey::Batch_ImportX509Cert", "begin, strP7: %s", bundle.GetString());
    const BundleKind kind = ClassifyBundle(bundle.View());
    if (kind == BundleKind::kMalformed) return SetLastError(KESTA_BAD_ARGUMENT);
    if (kind == BundleKind::kSections) {
        return BundleImport(token, serial.GetString(), bundle.View()).Run();
    }
    const int result = WriteCertificate(token, serial.GetString(), bundle);
    // Written on success too: readers of the log look for it.
    LogEntry(kBundleTag, kCertificateEnd, result);
    return result;
}

}  // namespace kesta
