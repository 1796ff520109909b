// The report as a page for a person: it needs nothing else, and no script.
#ifndef UKEY_REPORT_PAGE_H
#define UKEY_REPORT_PAGE_H

#include <string>
#include <vector>

#include "report/archive.h"
#include "report/contents.h"

namespace ukey {

// members: what lies beside the page.
std::string ReportPage(const Contents& contents, const std::vector<Member>& members);

}  // namespace ukey

#endif
