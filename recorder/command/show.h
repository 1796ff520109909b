// A recording for people and for programs.
#ifndef KESTA_RECORDER_SHOW_H
#define KESTA_RECORDER_SHOW_H

#include <functional>
#include <string>
#include <unordered_map>

#include "file/reader.h"

namespace kesta {
namespace recorder {

using OrderedJson = nlohmann::ordered_json;

// Tells a recording object by object: first {"recording": ...}, then its processes, its libraries
// and its calls. Values that are not kept get names, equal ones the same.
class Teller {
public:
    explicit Teller(const Recording& recording) : recording_(recording) {}

    OrderedJson Head() const;
    OrderedJson TellProcess(const Process& process) const;
    OrderedJson TellLibrary(const Library& library) const;
    OrderedJson TellCall(const Call& call);

private:
    OrderedJson Value(const Json& kept, const std::string& visibility);
    OrderedJson Values(const Json& kept, const Function& function, bool outputs);
    std::string NameOf(const std::string& tag, const std::string& visibility);

    const Recording& recording_;
    std::unordered_map<std::string, std::string> names_;
    std::unordered_map<std::string, int> counts_;
};

using Line = std::function<void(const std::string&)>;

// One call to a line, token calls beneath their export.
void ShowText(const Recording& recording, const Line& line);
// One object to a line.
void ShowJson(const Recording& recording, const Line& line);
// One page that needs nothing else.
std::string ShowPage(const Recording& recording);

// On one line; what is not UTF-8 is replaced.
std::string ToLine(const OrderedJson& object);

}  // namespace recorder
}  // namespace kesta

#endif
