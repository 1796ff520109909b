#include "pin_source.h"

#include <cerrno>
#include <cstdio>
#include <memory>

namespace softkey::command {
namespace {

struct Closer {
    void operator()(std::FILE* file) const {
        if (file != stdin) std::fclose(file);
    }
};

// The first line, also of a file from Windows. It is read byte by byte, without a buffer, and not
// beyond the capacity of a PIN, so that nothing of it stays behind in memory.
void ReadLine(const std::string& path, SecretText& pin) {
    const std::unique_ptr<std::FILE, Closer> file(path == "-" ? stdin
                                                              : std::fopen(path.c_str(), "re"));
    if (!file) throw FileError(path, errno);
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    for (;;) {
        const int next = std::fgetc(file.get());
        if (next == EOF && std::ferror(file.get()) != 0) {
            throw FileError(path, errno);
        }
        if (next == EOF || next == '\n') return pin.DropLast('\r');
        const char character = static_cast<char>(next);
        if (!pin.Append(&character, 1)) throw Failure(kPinLength);
    }
}

void RequireEnterable(const SecretText& pin) {
    for (const char byte : pin.View()) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x20 || value == 0x7F)
            throw Failure(kBadArgument, _("a PIN holds no control characters"));
    }
}

void ReadPin(const std::string& path, SecretText& pin) {
    ReadLine(path, pin);
    RequireEnterable(pin);
}

}  // namespace

std::pair<Option, Option> AddPinOptions(const Options& options, PinSource& source) {
    const Option file = options.Text("--pin-file", source.file, "FILE",
                                     N_("Take the PIN from the first line of a file"));
    const Option standard =
        options.Flag("--pin-stdin", source.standardInput,
                     N_("Take the PIN from the first line of the standard input"));
    standard.Excludes(file);
    return {file, standard};
}

void ChooseNewPin(const PinSource& source, const PinContext& context, NewPinKind kind,
                  SecretText& pin) {
    if (source.standardInput) return ReadPin("-", pin);
    if (!source.file.empty()) return ReadPin(source.file, pin);
    const Code code = AskNewPin(context, pin, kind);
    if (code == kPinCancelled) {
        const std::string variable =
            kind == NewPinKind::kFirst ? "KESTA_SOFTKEY_PIN" : "KESTA_SOFTKEY_NEW_PIN";
        throw Failure(code, Fill(_("set {1}, or give --pin-file or --pin-stdin"), {variable}));
    }
    if (code != kOk) throw Failure(code);
}

}  // namespace softkey::command
