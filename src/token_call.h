// The guarded call of one of the token library's entry points, and the texts that go with it.
#ifndef KESTA_TOKEN_CALL_H
#define KESTA_TOKEN_CALL_H

#include "commonfunction.h"
#include "last_error.h"
#include "lgn/lgn.h"

namespace kesta {

// Calls an entry point of the token library and makes its result the export's. The table may hold
// pointers of an earlier binding, so the handle is asked. Arguments take the entry point's types.
template <typename... Parameters, typename... Arguments>
int forward(const CommonFunction& token, int (*const& slot)(Parameters...),
            Arguments&&... arguments) {
    if (!token.IsBound()) return setLastError(KESTA_NOT_BOUND);
    const auto entry = __atomic_load_n(&slot, __ATOMIC_RELAXED);
    return setLastError(entry(static_cast<Parameters>(arguments)...));
}

inline LgnString copyOf(const char* text) {
    return LgnString(text, LGN::TextLength(text), _lgnBufferManager);
}

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
