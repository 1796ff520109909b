// The result codes of the software key, with their message texts in English and Chinese (UTF-8).
// One list: the enumeration, the message table and the documentation's table all come from it.
#ifndef SOFTKEY_CODES_H
#define SOFTKEY_CODES_H

#include <cstdint>

#define SOFTKEY_CODES(X)                                                                           \
    X(kOk, 0, "success", "成功")                                                                   \
    X(kNotSupported, 0x5B01, "not supported by this key", "此 UKey 不支持该操作")                  \
    X(kBadArgument, 0x5B02, "an argument is missing or malformed", "参数缺失或格式错误")           \
    X(kNoMemory, 0x5B03, "out of memory", "内存不足")                                              \
    X(kBufferTooSmall, 0x5B04, "the buffer is too small", "缓冲区过小")                            \
    X(kCryptoFailed, 0x5B05, "a cryptographic operation failed", "密码运算失败")                   \
    X(kKeyAbsent, 0x5B11, "no such key is present", "未检测到指定的 UKey")                         \
    X(kKeyRemoved, 0x5B12, "the key was removed during the operation", "操作过程中 UKey 被拔出")   \
    X(kSeveralKeys, 0x5B13, "several keys are present, name one by its serial number",             \
      "检测到多个 UKey，请指定序列号")                                                             \
    X(kPinWrong, 0x5B21, "the PIN is wrong", "PIN 码错误")                                         \
    X(kPinLocked, 0x5B22, "the PIN is locked", "PIN 码已锁定")                                     \
    X(kPinCancelled, 0x5B23, "PIN entry cancelled", "已取消输入 PIN 码")                           \
    X(kPinLength, 0x5B24, "the PIN must have 6 to 16 characters", "PIN 码长度须为 6 至 16 个字符") \
    X(kPinRequired, 0x5B25, "the PIN has not been verified", "尚未验证 PIN 码")                    \
    X(kPinMismatch, 0x5B26, "the two entries of the new PIN differ", "两次输入的新 PIN 码不一致")  \
    X(kButtonRefused, 0x5B31, "refused at the key's button", "用户在 UKey 上拒绝了操作")           \
    X(kButtonTimeout, 0x5B32, "the key's button was not pressed in time", "等待按键确认超时")      \
    X(kNoKeyPair, 0x5B41, "the key holds no such key pair", "UKey 中没有对应的密钥对")             \
    X(kNoCertificate, 0x5B42, "the key holds no such certificate", "UKey 中没有对应的证书")        \
    X(kCertificateMalformed, 0x5B43, "the certificate cannot be read", "证书无法解析")             \
    X(kCertificateMismatch, 0x5B44, "the certificate belongs to no key pair of this key",          \
      "证书与 UKey 中的密钥对不匹配")                                                              \
    X(kEnvelopeMalformed, 0x5B45, "the escrowed key cannot be read", "托管私钥无法解析")           \
    X(kEnvelopeMismatch, 0x5B46, "the escrowed key is not sealed to this key",                     \
      "托管私钥不是封装给此 UKey 的")                                                              \
    X(kCipherMalformed, 0x5B47, "the cipher text cannot be decrypted", "密文无法解密")             \
    X(kDataNotFound, 0x5B51, "the key holds no data object of this name", "UKey 中没有该数据对象") \
    X(kTooLong, 0x5B52, "the text is too long for the key", "文本超出 UKey 允许的长度")            \
    X(kUnknownLocale, 0x5B53, "the charset or language is not known", "不支持的字符集或语言")      \
    X(kStateDamaged, 0x5B61, "the key's stored state is damaged", "UKey 存储数据已损坏")           \
    X(kStateFull, 0x5B62, "there is no room to store the key's state", "UKey 存储空间不足")        \
    X(kStateBusy, 0x5B63, "the key is busy with another process", "UKey 正被其他进程占用")         \
    X(kStateUnreachable, 0x5B64, "the key's stored state cannot be opened", "无法打开 UKey 存储")  \
    X(kNoEvent, 0x5B71, "no event is waiting", "没有待处理的事件")                                 \
    X(kNoContext, 0x5B72, "the event context is not open", "事件上下文未打开")

namespace softkey {

enum Code : std::int32_t {
#define SOFTKEY_CODE(name, value, english, chinese) name = value,
    SOFTKEY_CODES(SOFTKEY_CODE)
#undef SOFTKEY_CODE
};

}  // namespace softkey

#endif
