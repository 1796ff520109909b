#include "log_file.h"

#include <regex.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

// A compiled pattern with what it matched. That of POSIX: the one of the standard library recurses
// with the text, and compilers warn about its insides when sanitizers are on.
class Pattern {
public:
    explicit Pattern(const char* shape) { regcomp(&compiled_, shape, REG_EXTENDED); }
    ~Pattern() { regfree(&compiled_); }
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;
    bool Matches(const std::string& text) {
        return regexec(&compiled_, text.c_str(), 9, parts_, 0) == 0;
    }
    std::string Part(const std::string& text, std::size_t index) const {
        const auto start = static_cast<std::size_t>(parts_[index].rm_so);
        return text.substr(start, static_cast<std::size_t>(parts_[index].rm_eo) - start);
    }

private:
    regex_t compiled_{};
    regmatch_t parts_[9];
};

Pattern headShape(
    "^\\[([0-9]{2}),([0-9]{2}):([0-9]{2}):([0-9]{2})\\.([0-9]{3,6})\\] (.*): "
    "\\(Process is ([0-9]+), thread is (-?[0-9]+)\\)$");
Pattern nextStart("^\\[[0-9]{2},[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3,6}\\] ");

[[noreturn]] void Bad(const std::string& what, const std::string& text) {
    throw std::runtime_error("the log has no proper record: " + what + ": " + text.substr(0, 200));
}

LogRecord ParseHead(const std::string& head) {
    if (!headShape.Matches(head)) Bad("head line", head);
    const auto text = [&head](std::size_t index) { return headShape.Part(head, index); };
    const auto number = [&text](std::size_t index) { return std::stoi(text(index)); };
    return {number(1), number(2), number(3), number(4), text(5), text(6), number(7), number(8), ""};
}

// A body may hold line breaks and brackets; it ends where the file ends or a head follows.
std::size_t EndOfBody(const std::string& text, std::size_t from) {
    for (std::size_t end = text.find("]\r\n", from); end != std::string::npos;
         end = text.find("]\r\n", end + 1)) {
        const std::string after = text.substr(end + 3, 40);
        if (after.empty() || nextStart.Matches(after)) return end;
    }
    Bad("no closing bracket with CR LF", text.substr(from));
}

}  // namespace

std::string LogText() {
    std::ifstream file(log_path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<LogRecord> ParseLog(std::string text) {
    std::vector<LogRecord> records;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t headEnd = text.find("\r\n\t[", at);
        if (headEnd == std::string::npos) Bad("second line", text.substr(at));
        LogRecord record = ParseHead(text.substr(at, headEnd - at));
        const std::size_t body = headEnd + 4;
        const std::size_t end = EndOfBody(text, body);
        record.body = text.substr(body, end - body);
        records.push_back(record);
        at = end + 3;
    }
    return records;
}

std::vector<LogRecord> LogRecords() {
    return ParseLog(LogText());
}

Lines LogLines() {
    Lines lines;
    for (const LogRecord& record : LogRecords()) lines.push_back(record.tag + "|" + record.body);
    return lines;
}

void ForgetLog() {
    std::remove(log_path);
}

bool LogExists() {
    struct stat status {};
    return stat(log_path, &status) == 0;
}
