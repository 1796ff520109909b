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
    explicit Teller(const Recording& recording) : m_recording(recording) {}

    OrderedJson head() const;
    OrderedJson process(const Process& process) const;
    OrderedJson library(const Library& library) const;
    OrderedJson call(const Call& call);

private:
    OrderedJson value(const Json& kept, const std::string& visibility);
    OrderedJson values(const Json& kept, const Function& function, bool outputs);
    std::string nameOf(const std::string& tag, const std::string& visibility);

    const Recording& m_recording;
    std::unordered_map<std::string, std::string> m_names;
    std::unordered_map<std::string, int> m_counts;
};

using Line = std::function<void(const std::string&)>;

// One call to a line, token calls beneath their export.
void showText(const Recording& recording, const Line& line);
// One object to a line.
void showJson(const Recording& recording, const Line& line);
// One page that needs nothing else.
std::string showPage(const Recording& recording);

// On one line; what is not UTF-8 is replaced.
std::string toLine(const OrderedJson& object);

}  // namespace recorder
}  // namespace kesta

#endif
