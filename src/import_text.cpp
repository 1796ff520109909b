#include "import_text.h"

#include "any_case.h"
#include "kesta/places.h"

namespace kesta {

namespace {

using places::kKeyHeader;

bool IsSectionName(std::string_view name) {
    return EqualInAnyCase(name, "SignCert") || EqualInAnyCase(name, "EncCert") ||
           EqualInAnyCase(name, "EncPriKey");
}

}  // namespace

void RemoveCommas(LgnString& text) {
    text.Replace(",", "");
}

void RemoveLineBreaks(LgnString& text) {
    text.Replace("\r", "");
    text.Replace("\n", "");
}

std::string_view KeyBody(std::string_view keyText) {
    if (keyText.find(kKeyHeader) == std::string_view::npos) return keyText;
    return keyText.substr(kKeyHeader.size());
}

BundleKind ClassifyBundle(std::string_view text) {
    std::size_t parenthesis = text.find('(');
    if (parenthesis == std::string_view::npos || parenthesis == 0) {
        return BundleKind::kSingleCertificate;
    }
    std::size_t start = 0;
    for (;;) {
        if (!IsSectionName(text.substr(start, parenthesis - start))) return BundleKind::kMalformed;
        const std::size_t bar = text.find('|', parenthesis + 1);
        if (bar == std::string_view::npos) return BundleKind::kSections;
        start = bar + 1;
        // The search leaves out the first character of the name, which belongs to it all the same.
        parenthesis = text.find('(', bar + 2);
        if (parenthesis == std::string_view::npos) return BundleKind::kMalformed;
    }
}

bool SectionScanner::Next(std::string_view& content) {
    const std::size_t opener = text_.find(opener_, position_);
    if (opener == std::string_view::npos || !handled_.insert(opener).second) return false;
    const std::size_t close = text_.find(')', opener);
    if (close == std::string_view::npos) {
        content = {};
        position_ = 1;
    } else {
        const std::size_t begin = opener + opener_.size();
        content = text_.substr(begin, close - begin);
        position_ = close + 2;
    }
    return true;
}

}  // namespace kesta
