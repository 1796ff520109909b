// The guarded call of one of the token library's entry points, and the texts that go with it.
#ifndef KESTA_TOKEN_CALL_H
#define KESTA_TOKEN_CALL_H

#include "commonfunction.h"
#include "last_error.h"
#include "lgn/lgn.h"

namespace kesta {

inline LgnString copyOf(const char* text) {
    return LgnString(text, LGN::TextLength(text), _lgnBufferManager);
}

// The token library as its callers see it: each entry point under its own name. Its result becomes
// the last error. After a failed binding the table may hold pointers of an earlier one, so the
// handle is asked. Arguments take the entry point's types.
class Token {
public:
    constexpr explicit Token(const CommonFunction& table) : m_table(table) {}

#define KESTA_GUARDED_CALL(result, name, arguments) \
    template <typename... Arguments>                \
    int name(Arguments&&... values) const {         \
        return call(m_table.m_p##name, values...);  \
    }
    KESTA_TOKEN_ENTRY_POINTS(KESTA_GUARDED_CALL)
#undef KESTA_GUARDED_CALL

    // The token library's text for a code. Only of a bound one: a text has no code to refuse with.
    LgnString message(std::int32_t code) const {
        return copyOf(__atomic_load_n(&m_table.m_pX_ErrorConvert_UOS, __ATOMIC_RELAXED)(code));
    }

private:
    template <typename... Parameters, typename... Arguments>
    int call(int (*const& slot)(Parameters...), Arguments&... arguments) const {
        if (!m_table.IsBound()) return setLastError(KESTA_NOT_BOUND);
        const auto entry = __atomic_load_n(&slot, __ATOMIC_RELAXED);
        return setLastError(entry(static_cast<Parameters>(arguments)...));
    }

    const CommonFunction& m_table;
};

// A private copy of a text that the token library may write to, cleaned first where that is asked.
class WritableCopy {
public:
    explicit WritableCopy(const char* text, void (*clean)(LgnString&) = nullptr)
        : m_text(copyOf(text)) {
        if (clean != nullptr) clean(m_text);
        m_characters = m_text.GetBuffer(m_text.GetLength());
    }
    char* get() const { return m_characters; }

private:
    LgnString m_text;
    char* m_characters;
};

// What the token library returns in a char*: from new[], released here on every path.
struct ReturnedText {
    char* text = nullptr;

    ReturnedText() = default;
    ~ReturnedText() { delete[] text; }
    ReturnedText(const ReturnedText&) = delete;
    ReturnedText& operator=(const ReturnedText&) = delete;
};

}  // namespace kesta

#endif
