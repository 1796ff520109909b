// All 42 exports, each with a call that passes its argument checks.
#ifndef KESTA_API_EVERY_EXPORT_H
#define KESTA_API_EVERY_EXPORT_H

#include <functional>
#include <string>
#include <vector>

struct Export {
    std::string name;
    std::function<int()> call;
    bool initialises;       // on first use
    bool asks_token;        // this call would reach the token library
    int without_token = 0;  // its answer when the token library cannot be bound

    friend void PrintTo(const Export& which, std::ostream* out) { *out << which.name; }
};

const std::vector<Export>& every_export();
std::vector<Export> exports_where(const std::function<bool(const Export&)>& wanted);

// For INSTANTIATE_TEST_SUITE_P.
struct ExportName {
    template <class Info>
    std::string operator()(const Info& info) const {
        return info.param.name;
    }
};

#endif
