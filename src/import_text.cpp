#include "import_text.h"

#include "any_case.h"
#include "kesta/places.h"

namespace kesta {

namespace {

using places::kKeyHeader;

bool isSectionName(std::string_view name) {
    return equalInAnyCase(name, "SignCert") || equalInAnyCase(name, "EncCert") ||
           equalInAnyCase(name, "EncPriKey");
}

}  // namespace

void removeCommas(LgnString& text) {
    text.Replace(",", "");
}

void removeLineBreaks(LgnString& text) {
    text.Replace("\r", "");
    text.Replace("\n", "");
}

std::string_view keyBody(std::string_view keyText) {
    if (keyText.find(kKeyHeader) == std::string_view::npos) return keyText;
    return keyText.substr(kKeyHeader.size());
}

BundleKind classifyBundle(std::string_view text) {
    std::size_t parenthesis = text.find('(');
    if (parenthesis == std::string_view::npos || parenthesis == 0) {
        return BundleKind::kSingleCertificate;
    }
    std::size_t start = 0;
    for (;;) {
        if (!isSectionName(text.substr(start, parenthesis - start))) return BundleKind::kMalformed;
        const std::size_t bar = text.find('|', parenthesis + 1);
        if (bar == std::string_view::npos) return BundleKind::kSections;
        start = bar + 1;
        // The search leaves out the first character of the name, which belongs to it all the same.
        parenthesis = text.find('(', bar + 2);
        if (parenthesis == std::string_view::npos) return BundleKind::kMalformed;
    }
}

bool SectionScanner::next(std::string_view& content) {
    const std::size_t opener = m_text.find(m_opener, m_position);
    if (opener == std::string_view::npos || !m_handled.insert(opener).second) return false;
    const std::size_t close = m_text.find(')', opener);
    if (close == std::string_view::npos) {
        content = {};
        m_position = 1;
    } else {
        const std::size_t begin = opener + m_opener.size();
        content = m_text.substr(begin, close - begin);
        m_position = close + 2;
    }
    return true;
}

}  // namespace kesta
