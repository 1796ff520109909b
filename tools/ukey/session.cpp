#include "session.h"

#include <cstdlib>
#include <cstring>

#include "pin_record.h"

namespace ukey {

void UsePersonsLanguage(const kesta::Library& library) {
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value == nullptr || *value == '\0') continue;
        if (std::strncmp(value, "zh", 2) == 0) return;
        break;
    }
    static_cast<void>(library.Try().SetLanguage("en_US", "").ok());
}

const kesta::Result<kesta::Library>& Session::TryLibrary() {
    if (!library_) {
        library_ =
            kesta::Library::TryLoad(libraryFile.empty() ? kesta::Library::kFileName : libraryFile);
        if (library_->ok()) UsePersonsLanguage(library_->value());
    }
    return *library_;
}

const kesta::Library& Session::library() {
    return TryLibrary().value();
}

std::string Session::Serial() {
    return givenSerial.empty() ? library().GetPrintNumber() : givenSerial;
}

std::string Session::UnlockedSerial() {
    const std::string serial = Serial();
    if (!skipPin) VerifyPin(serial);
    return serial;
}

void Session::VerifyPin(const std::string& serial) {
    TellTries(library(), serial, [&] { library().VerifyPIN(serial); });
}

}  // namespace ukey
