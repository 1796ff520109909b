// Mounts that a process of its own alone sees, for media that are full or can only be read.
#ifndef TESTS_SOFTKEY_OWN_MOUNTS_H
#define TESTS_SOFTKEY_OWN_MOUNTS_H

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

// An ordinary user needs a user namespace, in which the files are still the user's; root does not.
inline bool LeaveNamespace() {
    if (unshare(CLONE_NEWNS) == 0) return true;
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/gid_map") << group << " " << group << " 1";
    std::ofstream map("/proc/self/uid_map");
    map << user << " " << user << " 1" << std::flush;
    return static_cast<bool>(map);
}

// Mounts and acts in a process of its own. 0 when both go well, 77 when such a mount cannot be had.
inline int BehindMount(const std::function<bool()>& mounted, const std::function<void()>& act) {
    const pid_t child = fork();
    if (child == 0) {
        if (!LeaveNamespace()) _exit(77);
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
        if (!mounted()) _exit(77);
        act();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// With a small file system at the state folder.
inline int OnSmallDisk(const std::string& home, const std::function<void()>& act) {
    return BehindMount(
        [&] { return mount("tmpfs", home.c_str(), "tmpfs", 0, "size=1m,mode=700") == 0; }, act);
}

// With the state folder at another place, where it can only be read, whoever reads.
inline int OnReadOnlyMedium(const std::string& home, const std::string& medium,
                            const std::function<void()>& act) {
    std::filesystem::create_directory(medium);
    const auto mounted = [&] {
        constexpr unsigned long kAgain = MS_REMOUNT | MS_BIND | MS_RDONLY;
        return mount(home.c_str(), medium.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
               mount(nullptr, medium.c_str(), nullptr, kAgain, nullptr) == 0 &&
               setenv("KESTA_SOFTKEY_HOME", medium.c_str(), 1) == 0;  // to be opened anew
    };
    return BehindMount(mounted, act);
}

#endif
