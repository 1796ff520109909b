// What the command prints: a table or a text for a person, one JSON object for a program.
#ifndef UKEY_OUTPUT_H
#define UKEY_OUTPUT_H

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "exit_codes.h"

namespace ukey {

using Json = nlohmann::ordered_json;

enum class Colour { kNone, kBold, kDim, kRed, kYellow, kGreen };

// The text with the escape codes of a colour, when the stream is a terminal and NO_COLOR is unset.
std::string Paint(int stream, Colour colour, std::string_view text);

// Replaces control characters, so that a text from the key cannot steer the terminal.
std::string Printable(std::string_view text);

// How many columns a UTF-8 text takes in a terminal; East Asian wide characters take two.
std::size_t Columns(std::string_view text);

using Rows = std::vector<std::pair<std::string, std::string>>;

// "name  value" lines, values below each other.
void PrintRows(const Rows& rows, std::size_t indent = 0);
void PrintLine(std::string_view line = {});

// One object on one line. Bytes that are not UTF-8 are replaced.
void PrintJson(const Json& object);

// Standard output is flushed and checked: a full disk must not pass for success.
void FinishOutput();

// The same without flushing, for those who print for long: throws, or ends, after a failed write.
void CheckOutput();

// "ukey: …" on standard error, or {"ok":false,…} on standard output.
struct Complaint {
    Exit kind = Exit::kFailed;
    std::string message;
    std::string advice;
    std::string operation;  // empty when no call of the library failed
    int code = 0;
};
void Complain(const Complaint& complaint, bool json);

}  // namespace ukey

#endif
