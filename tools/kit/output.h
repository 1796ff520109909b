// What a command prints: a table or a text for a person, one JSON object for a program.
#ifndef KIT_OUTPUT_H
#define KIT_OUTPUT_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/errors.h"
#include "kit/json.h"
#include "kit/text.h"

namespace kit {

enum class Colour { kNone, kDim, kRed, kYellow, kGreen };

// True when escape codes may be sent: the stream is a terminal that knows them.
bool Steerable(int stream);

// The text with the escape codes of a colour, when the stream is a terminal and NO_COLOR is unset.
std::string Paint(int stream, Colour colour, std::string_view text);

using Rows = std::vector<std::pair<std::string, std::string>>;

// "name  value" lines, values below each other.
void PrintRows(const Rows& rows, std::size_t indent = 0);
void PrintLine(std::string_view line = {});

// Columns two blanks apart, no blank at the end of a line.
class Table {
public:
    void Row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    std::string Text(const std::string& indent = {}) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

// {"ok":true,...}
Json Success(const Json& fields = Json::object());
void PrintJson(const Json& object);

// Bytes to standard output. All that is printed passes here: neither a full disk nor lack of memory
// passes for success; where nobody reads any longer the command ends. Throws FileError, ReaderGone.
void Put(std::string_view bytes);
// A text for a person, in the charset of the terminal: on standard output, and aside.
void Say(std::string_view text);
void SayAside(std::string_view text);
// As in "ukey: line", aside.
void TellAside(std::string_view line);
void FinishOutput();

// A line on the terminal, for a person, while the program waits for something; it is wiped off
// afterwards. Where standard error is no terminal nothing is shown.
class Hint {
public:
    explicit Hint(std::string_view sentence);
    ~Hint();
    Hint(const Hint&) = delete;
    Hint& operator=(const Hint&) = delete;

private:
    bool shown_;
};

}  // namespace kit

#endif
