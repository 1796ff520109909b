// The language and charset of the messages, for the whole process.
#ifndef SOFTKEY_TOKEN_LOCALE_H
#define SOFTKEY_TOKEN_LOCALE_H

#include <atomic>

#include "softkey/messages.h"

namespace softkey {

inline std::atomic<Language> currentLanguage{Language::kChinese};
inline std::atomic<Charset> currentCharset{Charset::kUtf8};

}  // namespace softkey

#endif
