#include "session.h"

#include "kit/language.h"
#include "pin_record.h"

namespace ukey {

void UsePersonsLanguage(const kesta::Library& library) {
    const auto& ask = library.Try();
    static_cast<void>(ask.SetLanguage(LanguageName(), "").ok());
    // What is UTF-8 is shown in any charset.
    if (!ask.SetCharset(CharsetName(), "").ok())
        static_cast<void>(ask.SetCharset("UTF-8", "").ok());
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
