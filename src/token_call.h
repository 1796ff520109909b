// The guarded call of one of the token library's entry points, and the texts that go with it.
#ifndef KESTA_TOKEN_CALL_H
#define KESTA_TOKEN_CALL_H

#include "commonfunction.h"
#include "last_error.h"
#include "lgn/lgn.h"

namespace kesta {

inline LgnString CopyOf(const char* text) {
    return LgnString(text, LGN::TextLength(text), _lgnBufferManager);
}

// The token library as its callers see it: each entry point under its own name. Its result becomes
// the last error. After a failed binding the table may hold pointers of an earlier one, so the
// handle is asked. Arguments take the entry point's types.
class Token {
public:
    constexpr explicit Token(const CommonFunction& table) : table_(table) {}

#define KESTA_GUARDED_CALL(result, name, arguments) \
    template <typename... Arguments>                \
    int name(Arguments&&... values) const {         \
        return Call(table_.m_p##name, values...);   \
    }
    KESTA_TOKEN_ENTRY_POINTS(KESTA_GUARDED_CALL)
#undef KESTA_GUARDED_CALL

    // The token library's text for a code. Only of a bound one: a text has no code to refuse with.
    LgnString Message(std::int32_t code) const {
        return CopyOf(__atomic_load_n(&table_.m_pX_ErrorConvert_UOS, __ATOMIC_RELAXED)(code));
    }

private:
    template <typename... Parameters, typename... Arguments>
    int Call(int (*const& slot)(Parameters...), Arguments&... arguments) const {
        if (!table_.IsBound()) return SetLastError(KESTA_NOT_BOUND);
        const auto entry = __atomic_load_n(&slot, __ATOMIC_RELAXED);
        return SetLastError(entry(static_cast<Parameters>(arguments)...));
    }

    const CommonFunction& table_;
};

// A private copy of a text that the token library may write to, cleaned first where that is asked.
class WritableCopy {
public:
    explicit WritableCopy(const char* text, void (*clean)(LgnString&) = nullptr)
        : text_(CopyOf(text)) {
        if (clean != nullptr) clean(text_);
        characters_ = text_.GetBuffer(text_.GetLength());
    }
    char* get() const { return characters_; }

private:
    LgnString text_;
    char* characters_;
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
