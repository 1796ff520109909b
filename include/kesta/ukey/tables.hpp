// Kinds of failure, codes and sentences as lists to expand.
// Made by bindings/generate from bindings/codes.json; change it there.
#ifndef KESTA_UKEY_TABLES_HPP
#define KESTA_UKEY_TABLES_HPP

// clang-format off

// enumerator, name, exit status of ukey, words in English and in Chinese
#define KESTA_UKEY_KINDS(X)                                                                                              \
    X(kOk, "ok", 0, "success", "成功")                                                                                     \
    X(kNoKey, "no-key", 3, "no key, or not this key, is present", "未检测到 UKey，或不是指定的 UKey")                               \
    X(kSeveralKeys, "several-keys", 3, "several keys are present and none was named", "检测到多个 UKey，且未指定序列号")              \
    X(kRemoved, "removed", 3, "the key was pulled out meanwhile", "操作过程中 UKey 被拔出")                                      \
    X(kPinWrong, "pin-wrong", 4, "the PIN is wrong", "PIN 码错误")                                                          \
    X(kPinLocked, "pin-locked", 4, "the PIN is locked", "PIN 码已锁定")                                                      \
    X(kPinRequired, "pin-required", 4, "the PIN has not been verified", "尚未验证 PIN 码")                                    \
    X(kPinUnfit, "pin-unfit", 4, "the new PIN is not acceptable", "新 PIN 码不符合要求")                                        \
    X(kCancelled, "cancelled", 4, "the PIN entry was cancelled", "已取消输入 PIN 码")                                          \
    X(kRefused, "refused", 5, "a person refused at the key", "用户在 UKey 上拒绝了操作")                                          \
    X(kTimeout, "timeout", 5, "nobody answered at the key in time", "等待 UKey 按键确认超时")                                    \
    X(kNotFound, "not-found", 8, "the key holds no such certificate, key pair or data object", "UKey 中没有对应的证书、密钥对或数据对象") \
    X(kMismatch, "mismatch", 1, "a certificate or an escrowed key belongs to another key", "证书或托管私钥不属于此 UKey")           \
    X(kMalformed, "malformed", 1, "a certificate, escrowed key or cipher text cannot be read", "证书、托管私钥或密文无法解析")         \
    X(kTooLong, "too-long", 1, "a text is too long for the key", "文本超出 UKey 允许的长度")                                      \
    X(kBusy, "busy", 1, "the key or the library is busy with something else", "UKey 或接口库正忙")                             \
    X(kDamaged, "damaged", 1, "what the key stores is damaged or cannot be reached", "UKey 存储数据已损坏或无法访问")                \
    X(kFull, "full", 1, "the key has no room left", "UKey 存储空间不足")                                                       \
    X(kUnsupported, "unsupported", 10, "the library or the key does not support this", "接口库或 UKey 不支持该操作")               \
    X(kBadArgument, "bad-argument", 2, "an argument is missing, malformed or out of range", "参数缺失、格式错误或超出范围")            \
    X(kBuffer, "buffer", 6, "a buffer is too small, or a reported length cannot be true", "缓冲区过小，或返回的长度不可信")             \
    X(kNotLoaded, "not-loaded", 7, "the library or the token library cannot be loaded", "无法加载接口库或令牌库")                   \
    X(kFailed, "failed", 1, "the key or its library could not do it", "UKey 或令牌库执行失败")                                   \
    X(kUnknown, "unknown", 1, "the code is in no table", "返回码不在任何对照表中")

// the library's own codes: code, kind, sentence in English and in Chinese
#define KESTA_UKEY_OWN_CODES(X)                                                                                \
    X(KESTA_OK, kOk, "success", "成功")                                                                          \
    X(KESTA_NOT_BOUND, kNotLoaded, "the token library is missing or incomplete", "令牌库缺失或不完整")                  \
    X(KESTA_NOT_INITIALISED, kNotLoaded, "the library is not initialised", "接口库尚未初始化")                         \
    X(KESTA_UNSUPPORTED, kUnsupported, "not supported by this library", "接口库不支持该操作")                           \
    X(KESTA_BAD_ARGUMENT, kBadArgument, "an argument is missing, malformed or out of range", "参数缺失、格式错误或超出范围") \
    X(KESTA_BUFFER_TOO_SMALL, kBuffer, "the output buffer is too small", "输出缓冲区过小")

// the software key's codes: first, last, kind
#define KESTA_UKEY_SOFTKEY_CODES(X) \
    X(0x5B01, 0x5B01, kUnsupported) \
    X(0x5B02, 0x5B02, kBadArgument) \
    X(0x5B03, 0x5B03, kFailed)      \
    X(0x5B04, 0x5B04, kBuffer)      \
    X(0x5B05, 0x5B05, kFailed)      \
    X(0x5B11, 0x5B11, kNoKey)       \
    X(0x5B12, 0x5B12, kRemoved)     \
    X(0x5B13, 0x5B13, kSeveralKeys) \
    X(0x5B21, 0x5B21, kPinWrong)    \
    X(0x5B22, 0x5B22, kPinLocked)   \
    X(0x5B23, 0x5B23, kCancelled)   \
    X(0x5B24, 0x5B24, kPinUnfit)    \
    X(0x5B25, 0x5B25, kPinRequired) \
    X(0x5B26, 0x5B26, kPinUnfit)    \
    X(0x5B31, 0x5B31, kRefused)     \
    X(0x5B32, 0x5B32, kTimeout)     \
    X(0x5B41, 0x5B42, kNotFound)    \
    X(0x5B43, 0x5B43, kMalformed)   \
    X(0x5B44, 0x5B44, kMismatch)    \
    X(0x5B45, 0x5B45, kMalformed)   \
    X(0x5B46, 0x5B46, kMismatch)    \
    X(0x5B47, 0x5B47, kMalformed)   \
    X(0x5B51, 0x5B51, kNotFound)    \
    X(0x5B52, 0x5B52, kTooLong)     \
    X(0x5B53, 0x5B53, kBadArgument) \
    X(0x5B61, 0x5B61, kDamaged)     \
    X(0x5B62, 0x5B62, kFull)        \
    X(0x5B63, 0x5B63, kBusy)        \
    X(0x5B64, 0x5B64, kDamaged)     \
    X(0x5B71, 0x5B72, kFailed)

// the software key's PIN record: its length; where tries left, tries at most and the lock stand
#define KESTA_UKEY_SOFTKEY_PIN_RECORD 8, 0, 1, 2

// the face's own sentences: enumerator, English, Chinese; {0} is the first word to put in
#define KESTA_UKEY_SENTENCES(X)                                                                                                   \
    X(kNulByte, "a text holds a NUL byte", "文本中含有 NUL 字节")                                                                        \
    X(kTextTooLong, "a text is longer than 1 GiB", "文本超过 1 GiB")                                                                  \
    X(kNumberRange, "{0} does not fit into 32 bits", "{0} 超出 32 位整数范围")                                                           \
    X(kKeyTooLong, "the escrowed key has {0} characters where at most {1} fit", "托管私钥有 {0} 个字符，最多允许 {1} 个")                       \
    X(kGroupEndsAfterName, "a group of the request information ends right after a name", "证书请求信息的一组在名称之后缺少取值")                    \
    X(kEmptyItem, "a text of the list is empty", "列表中有空文本")                                                                       \
    X(kItemSeparator, "a text of the list holds \"||\", or begins or ends with \"|\"", "列表中的文本含有 \"||\"，或以 \"|\" 开头或结尾")          \
    X(kListTooLong, "the list is too long for one call", "列表过长，无法一次处理")                                                           \
    X(kEmptyBatch, "there is nothing to sign", "没有可签名的文本")                                                                        \
    X(kOneDigit, "{0} is {1}, it takes one digit", "{0} 为 {1}，只允许一位数字")                                                           \
    X(kSectionCharacter, "{0} holds \"|\" or \")\"", "{0} 中含有 \"|\" 或 \")\"")                                                     \
    X(kFalseLength, "the token library reports {0} bytes where at most {1} are possible", "令牌库返回的长度为 {0} 字节，最多允许 {1} 字节")         \
    X(kFalseLengthOfSome, "the token library reports {0} bytes where 1 to {1} are possible", "令牌库返回的长度为 {0} 字节，允许范围是 1 至 {1} 字节") \
    X(kOverrun, "the token library wrote beyond a buffer of {0} bytes", "令牌库写出了 {0} 字节缓冲区的边界")                                    \
    X(kPlainCut, "the plain text is reported with {0} bytes but ends at a NUL after {1}", "明文长度返回为 {0} 字节，但在第 {1} 字节后遇到 NUL")     \
    X(kRaised, "the library raised a C++ exception", "接口库抛出了 C++ 异常")                                                             \
    X(kNoText, "the token library gives no text for this", "令牌库没有给出说明")                                                           \
    X(kWaitInProgress, "another wait for events is in progress", "已有其他线程在等待 UKey 事件")                                             \
    X(kBusy, "another operation is in progress", "另一项操作正在进行")                                                                     \
    X(kNoFunction, "{0} has no function {1}", "{0} 中没有函数 {1}")                                                                    \
    X(kNoVariable, "{0} has no variable {1}", "{0} 中没有变量 {1}")                                                                    \
    X(kCodesField, "{0} is not what a file of codes holds", "{0} 不符合返回码文件的格式")

// clang-format on

#endif
