#include "output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "files.h"

namespace ukey {
namespace {

bool Coloured(int stream) {
    const char* const off = std::getenv("NO_COLOR");
    if (off != nullptr && *off != '\0') return false;
    const char* const terminal = std::getenv("TERM");
    if (terminal != nullptr && std::string_view(terminal) == "dumb") return false;
    return ::isatty(stream) == 1;
}

const char* Escape(Colour colour) {
    switch (colour) {
        case Colour::kBold:
            return "\033[1m";
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

// The code point at the start of the text, and how many bytes it takes.
std::pair<unsigned, std::size_t> Decode(std::string_view text) {
    const auto byte = [&text](std::size_t at) {
        return at < text.size() ? static_cast<unsigned>(static_cast<unsigned char>(text[at])) : 0U;
    };
    const unsigned lead = byte(0);
    if (lead < 0xC0) return {lead, 1};
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    unsigned point = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80U) return {lead, 1};
        point = (point << 6U) | (byte(i) & 0x3FU);
    }
    return {point, length};
}

bool Wide(unsigned point) {
    return (point >= 0x1100 && point <= 0x115F) || (point >= 0x2E80 && point <= 0xA4CF) ||
           (point >= 0xAC00 && point <= 0xD7A3) || (point >= 0xF900 && point <= 0xFAFF) ||
           (point >= 0xFE30 && point <= 0xFE4F) || (point >= 0xFF00 && point <= 0xFF60) ||
           (point >= 0xFFE0 && point <= 0xFFE6) || (point >= 0x20000 && point <= 0x3FFFD);
}

}  // namespace

std::string Paint(int stream, Colour colour, std::string_view text) {
    if (colour == Colour::kNone || text.empty() || !Coloured(stream)) return std::string(text);
    return Escape(colour) + std::string(text) + "\033[0m";
}

std::string Printable(std::string_view text) {
    std::string clean;
    while (!text.empty()) {
        const auto [point, length] = Decode(text);
        const bool control = point < 0x20 || (point >= 0x7F && point < 0xA0);
        if (control) {
            clean += '?';
        } else {
            clean += text.substr(0, length);
        }
        text.remove_prefix(std::min(length, text.size()));
    }
    return clean;
}

std::size_t Columns(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const auto [point, length] = Decode(text);
        columns += Wide(point) ? 2 : 1;
        text.remove_prefix(std::min(length, text.size()));
    }
    return columns;
}

void PrintLine(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
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

void PrintJson(const Json& object) {
    PrintLine(object.dump(-1, ' ', false, Json::error_handler_t::replace));
}

void FinishOutput() {
    std::fflush(stdout);
    CheckOutput();
}

void CheckOutput() {
    if (std::ferror(stdout) == 0) return;
    // Whoever reads has seen enough. To end by the signal is what a pipeline expects.
    if (errno == EPIPE) {
        std::signal(SIGPIPE, SIG_DFL);
        std::raise(SIGPIPE);
    }
    throw FileError("standard output cannot be written", errno);
}

void Complain(const Complaint& complaint, bool json) {
    if (json) {
        Json error = {{"kind", Name(complaint.kind)}, {"message", complaint.message}};
        if (!complaint.operation.empty()) {
            error["operation"] = complaint.operation;
            error["code"] = complaint.code;
            error["codeText"] = kesta::CodeText(complaint.code);
        }
        if (!complaint.advice.empty()) error["advice"] = complaint.advice;
        PrintJson({{"ok", false}, {"error", error}});
        std::fflush(stdout);
        return;
    }
    std::fflush(stdout);
    std::string text = Paint(STDERR_FILENO, Colour::kRed, "ukey:") + " ";
    if (!complaint.operation.empty()) text += complaint.operation + ": ";
    text += Printable(complaint.message);
    if (!complaint.operation.empty()) text += " (" + kesta::CodeText(complaint.code) + ")";
    text += '\n';
    if (!complaint.advice.empty()) text += "  " + complaint.advice + "\n";
    std::fputs(text.c_str(), stderr);
}

}  // namespace ukey
