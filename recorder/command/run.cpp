#include "run.h"

#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "kit/language.h"
#include "kit/text.h"

namespace kesta {
namespace recorder {

using kit::_;
using kit::Fill;

namespace {

constexpr const char* kAuditLibrary = "libkesta_audit.so";

// Interrupts reach the command as well; it decides what becomes of them.
class Patience {
public:
    Patience() {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGINT, &ignore, &interrupt_);
        sigaction(SIGQUIT, &ignore, &quit_);
        sigaction(SIGPIPE, nullptr, &pipe_);
    }
    ~Patience() { Restore(); }
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;

    void Restore() const {
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGQUIT, &quit_, nullptr);
    }

private:
    struct sigaction interrupt_, quit_, pipe_;
};

[[noreturn]] void Become(const std::vector<std::string>& command,
                         const std::map<std::string, std::string>& variables) {
    for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
    std::signal(SIGPIPE, SIG_DFL);
    std::vector<char*> words;
    for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    execvp(words[0], words.data());
    const int reason = errno;
    const std::string text = "ukey: " + command[0] + ": " + std::strerror(reason) + "\n";
    if (write(STDERR_FILENO, text.data(), text.size()) < 0) _exit(126);
    _exit(reason == ENOENT ? 127 : 126);
}

// Waits for one child and for those that became children because theirs ended.
Ended WaitFor(pid_t child) {
    Ended ended;
    int status = 0;
    for (;;) {
        const pid_t gone = waitpid(-1, &status, 0);
        if (gone == child) break;
        if (gone < 0 && errno != EINTR) throw CannotRun(_("waiting for the command failed"));
    }
    ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    pid_t other = 0;
    while ((other = waitpid(-1, nullptr, WNOHANG)) > 0) continue;
    ended.alone = other < 0 && errno == ECHILD;
    return ended;
}

std::string ParentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

}  // namespace

// Not by the C++ library's file system: old userlands have it in another place.
std::string AbsolutePath(const std::string& path) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) != nullptr) return resolved;
    throw CannotRun(path + ": " + std::strerror(errno));
}

std::string RecorderFolder() {
    const std::string above = ParentOf(ParentOf(AbsolutePath("/proc/self/exe")));
    std::vector<std::string> places = {above + "/recorder", above + "/lib/kesta-recorder"};
    // On Debian a folder for each architecture lies between.
    const std::unique_ptr<DIR, int (*)(DIR*)> libraries(opendir((above + "/lib").c_str()),
                                                        closedir);
    while (const dirent* entry = libraries ? readdir(libraries.get()) : nullptr) {
        places.push_back(above + "/lib/" + entry->d_name + "/kesta-recorder");
    }
    for (const std::string& place : places) {
        if (access((place + "/" + kAuditLibrary).c_str(), R_OK) == 0) return place;
    }
    throw CannotRun(
        Fill(_("the recorder's libraries are missing: there is no {1} in {2} nor below {3}"),
             {kAuditLibrary, places.front(), above + "/lib"}));
}

std::map<std::string, std::string> LoaderVariables(const std::string& folder) {
    if (folder.find(':') != std::string::npos) {
        throw CannotRun(
            Fill(_("the loader cannot be given a folder with a colon in its name: {1}"), {folder}));
    }
    std::string audit = folder + "/" + kAuditLibrary;
    const char* const others = std::getenv("LD_AUDIT");
    if (others != nullptr && *others != '\0') audit += std::string(":") + others;
    return {{"LD_AUDIT", audit}, {"KESTA_RECORDER_FOLDER", folder}};
}

Ended Run(const std::vector<std::string>& command,
          const std::map<std::string, std::string>& variables) {
    // What the command leaves behind becomes this process's child, which so knows of it.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const Patience patience;
    const pid_t child = fork();
    if (child < 0)
        throw CannotRun(Fill(_("no process can be started: {1}"), {kit::SystemText(errno)}));
    if (child == 0) {
        patience.Restore();
        Become(command, variables);
    }
    return WaitFor(child);
}

}  // namespace recorder
}  // namespace kesta
