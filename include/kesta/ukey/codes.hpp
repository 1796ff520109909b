// What a code means: kinds of failure, and the table that tells the kind of a code.
//
// The library's own codes are fixed. The token library's are its maker's business: the table knows
// the software key's, and another one is put in its place by CodeTable::Use. ukey and the bindings
// read a maker's table from a file; docs/codes.md describes it.
#ifndef KESTA_UKEY_CODES_HPP
#define KESTA_UKEY_CODES_HPP

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kesta/ukey/sentences.hpp"
#include "kesta_unified_zrkukey.h"

namespace kesta {

enum class Kind {
#define KESTA_UKEY_KIND(name, text, exit, english, chinese) name,
    KESTA_UKEY_KINDS(KESTA_UKEY_KIND)
#undef KESTA_UKEY_KIND
};

struct KindFacts {
    Kind kind;
    const char* name;  // "pin-wrong": the same in every language and program
    int exitStatus;    // of ukey
    const char* english;
    const char* chinese;

    std::string Words() const { return InLanguage(english, chinese); }
};

inline constexpr KindFacts kAllKinds[] = {
#define KESTA_UKEY_KIND(name, text, exit, english, chinese) \
    {Kind::name, text, exit, english, chinese},
    KESTA_UKEY_KINDS(KESTA_UKEY_KIND)
#undef KESTA_UKEY_KIND
};

inline const KindFacts& FactsOf(Kind kind) {
    return kAllKinds[static_cast<std::size_t>(kind)];
}

inline std::optional<Kind> KindNamed(std::string_view name) {
    for (const KindFacts& facts : kAllKinds) {
        if (facts.name == name) return facts.kind;
    }
    return std::nullopt;
}

// Where a token library's PIN record holds the numbers that the face reads.
struct PinRecord {
    std::size_t length;
    std::size_t triesLeft;
    std::size_t triesMost;
    std::size_t locked;
};

class CodeTable {
public:
    // Knows the library's own codes alone.
    CodeTable() = default;

    static CodeTable SoftwareKey() {
        CodeTable table;
#define KESTA_UKEY_ROW(first, last, kind) table.Add(first, last, Kind::kind);
        KESTA_UKEY_SOFTKEY_CODES(KESTA_UKEY_ROW)
#undef KESTA_UKEY_ROW
        table.pinRecord = PinRecord{KESTA_UKEY_SOFTKEY_PIN_RECORD};
        return table;
    }

    // A later row stands in front of an earlier one.
    void Add(int first, int last, Kind kind) {
        rows_.push_back({first, last, kind});
    }

    Kind KindOf(int code) const {
        switch (code) {
#define KESTA_UKEY_OWN(code, kind, english, chinese) \
    case code:                                       \
        return Kind::kind;
            KESTA_UKEY_OWN_CODES(KESTA_UKEY_OWN)
#undef KESTA_UKEY_OWN
            default:
                break;
        }
        for (auto row = rows_.rbegin(); row != rows_.rend(); ++row) {
            if (code >= row->first && code <= row->last) return row->kind;
        }
        return Kind::kUnknown;
    }

    std::optional<PinRecord> pinRecord;  // where it is known

    // The table of the whole program: the software key's, until another one is put in its place.
    static std::shared_ptr<const CodeTable> InUse() {
        const std::lock_guard<std::mutex> lock(Place().mutex);
        return Place().table;
    }
    static void Use(CodeTable table) {
        const std::lock_guard<std::mutex> lock(Place().mutex);
        Place().table = std::make_shared<const CodeTable>(std::move(table));
    }

private:
    struct Row {
        int first;
        int last;
        Kind kind;
    };
    struct Shared {
        std::mutex mutex;
        std::shared_ptr<const CodeTable> table = std::make_shared<const CodeTable>(SoftwareKey());
    };

    // Never destroyed: a thread may fail while the process ends.
    static Shared& Place() {
        static Shared* const place = new Shared;
        return *place;
    }

    std::vector<Row> rows_;
};

// The face's own sentence for a code of the library's; empty for any other code.
inline std::string OwnMessage(int code) {
    switch (code) {
#define KESTA_UKEY_OWN(code, kind, english, chinese) \
    case code:                                       \
        return InLanguage(english, chinese);
        KESTA_UKEY_OWN_CODES(KESTA_UKEY_OWN)
#undef KESTA_UKEY_OWN
        default:
            return {};
    }
}

}  // namespace kesta

#endif
