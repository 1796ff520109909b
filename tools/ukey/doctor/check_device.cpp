// The key itself: on the USB bus, and as the token library sees it.
#include <glob.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>

#include "doctor/checks.h"
#include "exit_codes.h"
#include "kesta/ukey.hpp"
#include "session.h"

namespace ukey {
namespace {

// What the library's GetVidAndPid names.
constexpr const char* kVendor = "2e5a";
constexpr const char* kProduct = "0301";

std::string FirstWord(const std::string& path) {
    std::ifstream file(path);
    std::string word;
    file >> word;
    std::transform(word.begin(), word.end(), word.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return word;
}

// The sysfs folders of the keys on the bus.
std::vector<std::string> FindDevices(const std::string& root) {
    std::vector<std::string> devices;
    glob_t found{};
    const std::string pattern = root + "/sys/bus/usb/devices/*/idVendor";
    if (::glob(pattern.c_str(), 0, nullptr, &found) == 0) {
        for (std::size_t i = 0; i < found.gl_pathc; ++i) {
            const std::string vendor = found.gl_pathv[i];
            const std::string folder = vendor.substr(0, vendor.rfind('/'));
            if (FirstWord(vendor) == kVendor && FirstWord(folder + "/idProduct") == kProduct) {
                devices.push_back(folder);
            }
        }
    }
    ::globfree(&found);
    return devices;
}

std::string Padded(const std::string& number) {
    return number.size() < 3 ? std::string(3 - number.size(), '0') + number : number;
}

void CheckNode(Report& report, const std::string& device) {
    const std::string node = report.root + "/dev/bus/usb/" + Padded(FirstWord(device + "/busnum")) +
                             "/" + Padded(FirstWord(device + "/devnum"));
    if (::access(node.c_str(), F_OK) != 0) {
        report.Problem(
            "usb.node", "USB node", node + ": " + std::strerror(errno),
            "pull the key out and insert it again; in a container, pass /dev/bus/usb on");
    } else if (::access(node.c_str(), R_OK | W_OK) != 0) {
        report.Problem("usb.node", "USB node", node + " may not be opened by this user",
                       "install the udev rule of the maker's package, then insert the key again");
    } else {
        report.Fine("usb.node", "USB node", node);
    }
}

struct Answer {
    int code = 0;
    char text[256] = {};
};

// Runs in a process of its own: a library under suspicion may crash or hang.
[[noreturn]] void AskForKey(const std::string& libraryFile, int output) {
    Answer answer;
    const auto library =
        kesta::Library::TryLoad(libraryFile.empty() ? kesta::Library::kFileName : libraryFile);
    if (!library) {
        answer.code = library.failure().code;
        std::snprintf(answer.text, sizeof answer.text, "%s", library.failure().message.c_str());
    } else {
        UsePersonsLanguage(library.value());
        const auto serial = library.value().Try().GetPrintNumber();
        answer.code = serial.code();
        const std::string text = serial ? serial.value() : serial.failure().message;
        std::snprintf(answer.text, sizeof answer.text, "%s", text.c_str());
    }
    const bool written = ::write(output, &answer, sizeof answer) == sizeof answer;
    ::_exit(written ? 0 : 1);
}

// The answer, or nothing when the child ended or hung without one. status: how it ended.
std::optional<Answer> Hear(pid_t child, int input, int seconds, int& status) {
    pollfd wait{input, POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&wait, 1, seconds * 1000);
    } while (ready < 0 && errno == EINTR);
    Answer answer;
    const bool heard = ready == 1 && ::read(input, &answer, sizeof answer) == sizeof answer;
    // What has answered may still hang in its destructors.
    if (heard || ready == 0) ::kill(child, SIGKILL);
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    answer.text[sizeof answer.text - 1] = '\0';
    if (!heard) return std::nullopt;
    return answer;
}

void ReportNoProcess(Report& report) {
    report.Problem("key", "key", std::string("cannot be asked for: ") + std::strerror(errno),
                   "end some programs: memory, processes or file descriptors ran out");
}

void ReportAnswer(Report& report, const Answer& answer) {
    const std::string why = std::string(answer.text) + " (" + kesta::CodeText(answer.code) + ")";
    if (answer.code == KESTA_OK) {
        report.Fine("key", "key", answer.text);
    } else if (KindOfCode(answer.code) == Exit::kNotLoaded) {
        report.Problem("key", "key", "cannot be asked for: " + why,
                       "mend what is said above; then ask again");
    } else {
        report.Problem("key", "key", why, "insert the key, or another one, and ask again");
    }
}

}  // namespace

void CheckUsbDevice(Report& report) {
    const auto devices = FindDevices(report.root);
    if (devices.empty()) {
        // Told as a warning: a key may also be somewhere else than on this machine's bus.
        report.Warn("usb.device", "USB device", "no device 2E5A:0301 on the USB bus",
                    "insert the key; try another port; look at `dmesg | tail`");
        return;
    }
    for (const std::string& device : devices) {
        report.Fine("usb.device", "USB device",
                    "2E5A:0301 at " + device.substr(device.rfind('/') + 1));
        CheckNode(report, device);
    }
}

void CheckKey(Report& report, const std::string& libraryFile, int seconds) {
    int ends[2];
    if (::pipe(ends) != 0) return ReportNoProcess(report);
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        AskForKey(libraryFile, ends[1]);
    }
    if (child < 0) ReportNoProcess(report);
    ::close(ends[1]);
    int status = 0;
    const auto answer = child > 0 ? Hear(child, ends[0], seconds, status) : std::nullopt;
    ::close(ends[0]);
    if (child < 0) return;
    if (answer) return ReportAnswer(report, *answer);
    const std::string how = !WIFSIGNALED(status) ? "ended without an answer"
                            : WTERMSIG(status) == SIGKILL
                                ? "gave no answer in " + std::to_string(seconds) +
                                      (seconds == 1 ? " second" : " seconds")
                                : "crashed with " + std::string(::strsignal(WTERMSIG(status)));
    report.Problem("key", "key", "the token library " + how,
                   "install the maker's package again; pull the key out and insert it again");
}

}  // namespace ukey
