// The key on the USB bus, and whether this user may open it there.
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fstream>
#include <iterator>

#include "doctor/checks.h"
#include "doctor/remedy.h"
#include "kit/language.h"

namespace ukey {
namespace {

// What the library's GetVidAndPid names.
constexpr const char* kVendor = "2e5a";
constexpr const char* kProduct = "0301";
constexpr const char* kRuleFile = "/etc/udev/rules.d/70-kesta-ukey.rules";
// The person at the machine gets the device. The tag counts below number 73.
constexpr const char* kRule =
    R"(SUBSYSTEM=="usb", ATTR{idVendor}=="2e5a", ATTR{idProduct}=="0301", TAG+="uaccess")";

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string FirstWord(const std::string& path) {
    std::ifstream file(path);
    std::string word;
    file >> word;
    return Lower(word);
}

std::vector<std::string> Glob(const std::string& pattern) {
    std::vector<std::string> paths;
    glob_t found{};
    if (::glob(pattern.c_str(), 0, nullptr, &found) == 0) {
        paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    }
    ::globfree(&found);
    return paths;
}

// The sysfs folders of the keys on the bus.
std::vector<std::string> FindDevices(const std::string& root) {
    std::vector<std::string> devices;
    for (const std::string& vendor : Glob(root + "/sys/bus/usb/devices/*/idVendor")) {
        const std::string folder = FolderOf(vendor);
        if (FirstWord(vendor) == kVendor && FirstWord(folder + "/idProduct") == kProduct) {
            devices.push_back(folder);
        }
    }
    return devices;
}

// The file of rules that names the key's maker; empty when none does.
std::string FindRule(const std::string& root) {
    for (const char* const folder : {"/etc", "/run", "/usr/local/lib", "/usr/lib", "/lib"}) {
        for (const std::string& path : Glob(root + folder + "/udev/rules.d/*.rules")) {
            std::ifstream file(path);
            for (std::string line; std::getline(file, line);) {
                const std::size_t start = line.find_first_not_of(" \t");
                if (start == std::string::npos || line[start] == '#') continue;
                if (Lower(line).find(std::string("\"") + kVendor) != std::string::npos) return path;
            }
        }
    }
    return {};
}

// Writes the rule and applies it to a key that is there.
std::string AddRule(const std::string& root) {
    const std::string file = Words({root + kRuleFile});
    const std::string write = std::string("echo '") + kRule + "' | " + AsRoot("tee " + file);
    if (!root.empty()) return write;
    return write + " && " + AsRoot("udevadm control --reload") + " && " +
           AsRoot(std::string("udevadm trigger --attr-match=idVendor=") + kVendor);
}

std::string Padded(const std::string& number) {
    return number.size() < 3 ? std::string(3 - number.size(), '0') + number : number;
}

// True when ordinary users can open the node, as far as this one can tell.
bool CheckNode(Report& report, const std::string& device, const std::string& rule) {
    const std::string node = report.root + "/dev/bus/usb/" + Padded(FirstWord(device + "/busnum")) +
                             "/" + Padded(FirstWord(device + "/devnum"));
    struct stat status {};
    if (::stat(node.c_str(), &status) != 0) {
        report.Problem(
            "usb.node", _("USB node"), Fill(_("{1}: {2}"), {node, SystemText(errno)}),
            _("pull the key out and insert it again; in a container, pass /dev/bus/usb on"));
        return true;  // a rule would not help
    }
    if (::access(node.c_str(), R_OK | W_OK) != 0) {
        report.Problem(
            "usb.node", _("USB node"), Fill(_("{1} may not be opened by this user"), {node}),
            rule.empty() ? AddRule(report.root)
                         : Fill(_("there is a rule in {1}: pull the key out and insert it again, "
                                  "and sit at the machine: a rule with uaccess does not count "
                                  "over ssh"),
                                {rule}));
        return true;
    }
    report.Fine("usb.node", _("USB node"), node);
    constexpr mode_t kEverybody = S_IROTH | S_IWOTH;
    return ::geteuid() != 0 || (status.st_mode & kEverybody) == kEverybody;
}

}  // namespace

void CheckUsbDevice(Report& report, bool named) {
    const auto devices = FindDevices(report.root);
    const std::string rule = FindRule(report.root);
    bool open = !devices.empty();
    if (devices.empty()) {
        // Told as a warning: a key may also be somewhere else than on this machine's bus.
        report.Warn("usb.device", _("USB device"), _("no device 2E5A:0301 on the USB bus"),
                    _("insert the key; try another port; look at `dmesg | tail`"));
    }
    for (const std::string& device : devices) {
        report.Fine("usb.device", _("USB device"),
                    Fill(_("2E5A:0301 at {1}"), {device.substr(device.rfind('/') + 1)}));
        open = CheckNode(report, device, rule) && open;
    }
    if (devices.size() > 1 && !named) {
        report.Warn("usb.several", _("USB device"),
                    Fill(_("{1} keys are on the bus; clients that name none get whichever comes "
                           "first"),
                         {std::to_string(devices.size())}),
                    _(kNameOne));
    }
    if (!rule.empty()) {
        report.Fine("usb.rule", _("udev rule"), rule);
    } else if (!open) {
        report.Warn("usb.rule", _("udev rule"),
                    _("no rule names 2E5A:0301, ordinary users may find the key closed"),
                    AddRule(report.root));
    }
}

}  // namespace ukey
