#include "kit/text.h"
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

// The page's sentences stand between "%%" there. They hold nothing that HTML or a string of
// JavaScript would read otherwise.
std::string InPersonsLanguage(const std::string& page) {
    constexpr std::string_view kMark = "%%";
    std::string text;
    std::size_t end = 0;
    for (bool sentence = false; end != std::string::npos; sentence = !sentence) {
        const std::size_t start = end == 0 ? 0 : end + kMark.size();
        end = page.find(kMark, start);
        const std::string piece = page.substr(start, end - start);
        text += sentence ? kit::_(piece.c_str()) : piece;
    }
    return text;
}

}  // namespace

std::string ShowPage(const Recording& recording) {
    std::string data;
    ShowJson(recording, [&data](const std::string& line) {
        data += (data.empty() ? "[\n" : ",\n") + InScript(line);
    });
    std::string page = InPersonsLanguage(kPageTemplate);
    const std::string place = "%DATA%";
    return page.replace(page.find(place), place.size(), data + "\n]");
}

}  // namespace recorder
}  // namespace kesta
