#include "kit/output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "kit/language.h"
#include "kit/memory.h"
#include "kit/program.h"

namespace kit {
namespace {

bool Coloured(int stream) {
    const char* const off = std::getenv("NO_COLOR");
    return (off == nullptr || *off == '\0') && Steerable(stream);
}

const char* Escape(Colour colour) {
    switch (colour) {
        case Colour::kDim:
            return "\033[2m";
        case Colour::kRed:
            return "\033[31m";
        case Colour::kYellow:
            return "\033[33m";
        case Colour::kGreen:
            return "\033[32m";
        case Colour::kNone:
            break;
    }
    return "";
}

[[noreturn]] void Unwritable(int number) {
    if (number == EPIPE) throw ReaderGone();
    throw OutputError(_("standard output cannot be written"), number);
}

}  // namespace

bool Steerable(int stream) {
    const char* const terminal = std::getenv("TERM");
    if (terminal != nullptr && std::string_view(terminal) == "dumb") return false;
    return ::isatty(stream) == 1;
}

std::string Paint(int stream, Colour colour, std::string_view text) {
    if (colour == Colour::kNone || text.empty() || !Coloured(stream)) return std::string(text);
    return Escape(colour) + std::string(text) + "\033[0m";
}

void Put(std::string_view bytes) {
    RequireMemory();
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) Unwritable(errno);
}

void Say(std::string_view text) {
    Put(FromUtf8(text));
}

void SayAside(std::string_view text) {
    std::fputs(FromUtf8(text).c_str(), stderr);
}

void TellAside(std::string_view line) {
    std::fflush(stdout);
    SayAside(std::string(ProgramName()) + ": " + Printable(line) + "\n");
}

void PrintLine(std::string_view line) {
    Say(line);
    Put("\n");
}

void PrintRows(const Rows& rows, std::size_t indent) {
    std::size_t width = 0;
    for (const auto& row : rows) width = std::max(width, Columns(row.first));
    for (const auto& [name, value] : rows) {
        std::string line(indent, ' ');
        line += Paint(STDOUT_FILENO, Colour::kDim, name);
        line.append(width - Columns(name) + 2, ' ');
        line += value;
        PrintLine(line);
    }
}

std::string Table::Text(const std::string& indent) const {
    std::vector<std::size_t> widths;
    for (const auto& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()), 0);
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Columns(row[i]));
        }
    }
    std::string text;
    for (const auto& row : rows_) {
        std::string line = indent;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i] + std::string(widths[i] - Columns(row[i]) + 2, ' ');
        }
        text += Trimmed(line) + '\n';
    }
    return text;
}

Json Success(const Json& fields) {
    Json object = {{"ok", true}};
    object.update(fields);
    return object;
}

void PrintJson(const Json& object) {
    Put(object.Text() + "\n");  // UTF-8 in every locale
}

void FinishOutput() {
    RequireMemory();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) Unwritable(errno);
}

Hint::Hint(std::string_view sentence) : shown_(::isatty(STDERR_FILENO) == 1) {
    if (!shown_) return;
    std::fflush(stdout);
    std::string line = Paint(STDERR_FILENO, Colour::kDim, sentence);
    if (!Steerable(STDERR_FILENO)) line += '\n';
    SayAside(line);
}

Hint::~Hint() {
    if (shown_ && Steerable(STDERR_FILENO)) std::fputs("\r\033[K", stderr);
}

}  // namespace kit
