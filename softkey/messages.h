// The message texts of the result codes, as X_ErrorConvert_UOS hands them out.
#ifndef SOFTKEY_MESSAGES_H
#define SOFTKEY_MESSAGES_H

#include <cstdint>

namespace softkey {

enum class Language { kChinese, kEnglish };
enum class Charset { kUtf8, kGb18030 };

// The text of a code. Never null, NUL-terminated, the same pointer for the same arguments, valid
// until the process ends; any thread may ask. A code without a text of its own is answered by
// "unknown result code 0x…" or "未知返回码 0x…", eight upper-case hexadecimal digits. When memory
// runs out, or the system has no GB18030 converter, the text is the English one, which is ASCII in
// both charsets.
const char* MessageText(std::int32_t code, Language language, Charset charset) noexcept;

}  // namespace softkey

#endif
