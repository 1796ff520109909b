#include "page_template.h"
#include "show.h"

namespace kesta {
namespace recorder {
namespace {

// Nothing in the data can end the element that holds it.
std::string InScript(const std::string& json) {
    std::string text;
    for (const char one : json) {
        if (one == '<') {
            text += "\\u003c";
        } else {
            text += one;
        }
    }
    return text;
}

}  // namespace

std::string ShowPage(const Recording& recording) {
    std::string data;
    ShowJson(recording, [&data](const std::string& line) {
        data += (data.empty() ? "[\n" : ",\n") + InScript(line);
    });
    std::string page = kPageTemplate;
    const std::string place = "%DATA%";
    return page.replace(page.find(place), place.size(), data + "\n]");
}

}  // namespace recorder
}  // namespace kesta
