// Facts that are fixed for good and that the library, the software key and the tools share: where
// files stand, what they are called, how large things may be. Each is written here once.
#ifndef KESTA_PLACES_H
#define KESTA_PLACES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

// Macros, because texts are joined from them; CMake reads some of them.
#define KESTA_INSTALL_DIRECTORY "/opt/apps/com.zrk.uoskesta/files/bin"
#define KESTA_TOKEN_LIBRARY "libKestaZRK.so"
#define KESTA_EVENT_LIBRARY "libR7Token_KESTA.so"
#define KESTA_LOG_FILE "/tmp/ValtoPinpad_KESTA.log"

// The version of the library and of all that is built with it; CMake reads it here.
#define KESTA_VERSION "9.2025.0731.3"

namespace kesta {
namespace places {

// Vendor and product of the key on the USB bus, in hexadecimal.
constexpr const char* kUsbIds = "2E5A&0301";

// The maker's name.
constexpr const char* kMakerChinese = "岚岫诚科技股份有限公司";
constexpr const char* kMakerEnglish = "Quillorn Corporation";

// The directory of the maker's package, where both token libraries stand.
constexpr const char* kInstallDirectory = KESTA_INSTALL_DIRECTORY;
constexpr const char* kTokenLibrary = KESTA_INSTALL_DIRECTORY "/" KESTA_TOKEN_LIBRARY;
constexpr const char* kEventLibrary = KESTA_INSTALL_DIRECTORY "/" KESTA_EVENT_LIBRARY;

// The companion files of the maker's package, as the maker lists them: libraries without suffix.
constexpr const char* kCompanionFiles[] = {"ValtoPinpadDaemon_KESTA", "KeyWarden",
                                           "libR7Pinpad_KESTA", "ValtoMonitor_kesta",
                                           "libR7Token_KESTA"};

// The diagnostic log. A file above the limit, in bytes, is deleted before the next record.
constexpr const char* kLogFile = KESTA_LOG_FILE;
constexpr std::int64_t kLogLimit = 104857600;

// Stands in front of an escrowed key as an authority delivers it; the library drops it.
constexpr std::string_view kKeyHeader =
    "00000000000000010000000000000001000000000000000000000000000000000000000000000273";
static_assert(kKeyHeader.size() == 80, "the header of a key text has 80 digits");

}  // namespace places

// Sizes in bytes.
namespace limits {

// The buffers that the library hands to the token library. A text that fills its buffer has no NUL.
constexpr std::size_t kSerialBuffer = 1024;
constexpr std::size_t kCertificateBuffer = 4096;
constexpr std::size_t kNameBuffer = 1024;
constexpr std::size_t kLabelBuffer = 512;
constexpr std::size_t kDataBuffer = 260;
// Takes a key text without its header; a longer one ends the process.
constexpr std::size_t kKeyBuffer = 1024;

// What is told to who asks for a size, without a look at the key.
constexpr int kMessage = 200;
constexpr unsigned kPinInformation = 8;
constexpr unsigned kCertificateInformation = 1280;
constexpr unsigned kMediaIdBuffer = 17;

// A media id, without a NUL.
constexpr std::size_t kMediaId = kMediaIdBuffer - 1;

// The name of a data object, and the longest value that is written.
constexpr std::size_t kShortestDataName = 10;
constexpr std::size_t kLongestDataName = 16;
constexpr std::size_t kLongestData = 300;

}  // namespace limits
}  // namespace kesta

#endif
