#include "softkey/admin/pin_source.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace softkey::admin {
namespace {

struct Closer {
    void operator()(std::FILE* file) const {
        if (file != stdin) std::fclose(file);
    }
};

// The first line. It is read byte by byte, without a buffer, and not beyond the capacity of a PIN,
// so that nothing of it stays behind in memory.
void ReadLine(const std::string& path, SecretText& pin) {
    const std::unique_ptr<std::FILE, Closer> file(path == "-" ? stdin
                                                              : std::fopen(path.c_str(), "re"));
    if (!file) throw InputError(path + ": " + std::strerror(errno));
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    for (;;) {
        const int next = std::fgetc(file.get());
        if (next == EOF && std::ferror(file.get()) != 0) {
            throw InputError(path + ": " + std::strerror(errno));
        }
        if (next == EOF || next == '\n') return;
        const char character = static_cast<char>(next);
        if (!pin.Append(&character, 1)) throw Failure(kPinLength);
    }
}

}  // namespace

void AddPinOptions(CLI::App& command, PinSource& source) {
    CLI::Option* const file =
        command.add_option("--pin-file", source.file, "Take the PIN from the first line of a file")
            ->type_name("FILE");
    command
        .add_flag("--pin-stdin", source.standardInput,
                  "Take the PIN from the first line of the standard input")
        ->excludes(file);
}

void ChooseNewPin(const PinSource& source, const PinContext& context, NewPinKind kind,
                  SecretText& pin) {
    if (source.standardInput) return ReadLine("-", pin);
    if (!source.file.empty()) return ReadLine(source.file, pin);
    const Code code = AskNewPin(context, pin, kind);
    if (code == kPinCancelled) {
        const std::string variable =
            kind == NewPinKind::kFirst ? "KESTA_SOFTKEY_PIN" : "KESTA_SOFTKEY_NEW_PIN";
        throw Failure(code, "set " + variable + ", or give --pin-file or --pin-stdin");
    }
    if (code != kOk) throw Failure(code);
}

}  // namespace softkey::admin
