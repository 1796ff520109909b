#include "softkey/admin/session.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <vector>

#include "softkey/store/home.h"
#include "softkey/store/keys.h"

namespace softkey::admin {

ExitCode ExitCodeFor(Code code) {
    switch (code) {
        case kOk:
            return kExitDone;
        case kBadArgument:
        case kTooLong:
        case kSeveralKeys:
            return kExitUsage;
        case kKeyAbsent:
        case kNoKeyPair:
        case kNoCertificate:
        case kDataNotFound:
            return kExitNotFound;
        case kPinWrong:
        case kPinLocked:
        case kPinCancelled:
        case kPinLength:
        case kPinRequired:
        case kPinMismatch:
            return kExitPin;
        case kCertificateMalformed:
        case kEnvelopeMalformed:
            return kExitInput;
        case kStateDamaged:
            return kExitDamaged;
        case kStateFull:
        case kStateBusy:
        case kStateUnreachable:
            return kExitState;
        default:
            return kExitInternal;
    }
}

void Session::Print(const Json& object, const std::string& text) const {
    if (json) {
        std::cout << object.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    } else {
        std::cout << text;
    }
}

CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& purpose,
                     const std::string& examples) {
    CLI::App* const command = app.add_subcommand(name, purpose);
    std::string footer = "Examples:\n";
    std::istringstream lines(examples);
    for (std::string line; std::getline(lines, line);) footer += "  " + line + "\n";
    command->footer(footer + "\nWith --json the answer is JSON.\n");
    command->fallthrough();  // --json may stand behind the subcommand too
    return command;
}

void AddSerial(CLI::App& command, std::string& serial) {
    command
        .add_option("serial", serial,
                    "Serial number of the key; may be left out when there is "
                    "only one")
        ->type_name("SERIAL");
}

std::unique_ptr<Store> OpenState() {
    const std::string home = StateHome();
    std::unique_ptr<Store> store = Store::OpenExisting(home);
    if (!store) throw Failure(kKeyAbsent, "no key was created yet in " + home);
    return store;
}

KeyRecord ChooseKey(Store& store, const std::string& serial) {
    if (!serial.empty()) {
        const auto found = KeyTable(store).Find(serial);
        if (!found) throw Failure(kKeyAbsent, serial);
        return *found;
    }
    const std::vector<KeyRecord> keys = KeyTable(store).All();
    if (keys.empty()) throw Failure(kKeyAbsent, "no key was created yet in " + store.home());
    if (keys.size() == 1) return keys[0];
    std::string names;
    for (const KeyRecord& key : keys) names += (names.empty() ? "" : ", ") + key.serial;
    throw Failure(kSeveralKeys, names);
}

std::string ReadInput(const std::string& path) {
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file) throw InputError(path + ": " + std::strerror(errno));
    }
    std::istream& stream = path == "-" ? std::cin : file;
    std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (stream.bad()) throw InputError(path + ": cannot be read");
    return text;
}

void WriteOutput(const std::string& path, const std::string& bytes) {
    if (path.empty() || path == "-") {
        std::cout << bytes;
        return;
    }
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0) throw InputError(path + ": " + std::strerror(errno));
    const ssize_t written = write(file, bytes.data(), bytes.size());
    const bool whole = written == static_cast<ssize_t>(bytes.size()) && fsync(file) == 0;
    const int reason = errno;
    close(file);
    if (!whole) throw InputError(path + ": " + std::strerror(reason));
}

std::string Printable(const std::string& text) {
    std::string result;
    for (const char character : text) {
        const auto value = static_cast<unsigned char>(character);
        result += value < 0x20 || value == 0x7F ? '?' : character;
    }
    return result;
}

}  // namespace softkey::admin
