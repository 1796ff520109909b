// The store's members for the key's screen and button.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "softkey/store/database.h"
#include "softkey/store/store.h"

namespace softkey {
namespace {

// The screen is a plain file of fixed size, written in one piece: each signature writes it, and
// what a screen shows is worth neither a sync nor a page of the database.
using ScreenImage = std::array<char, kMaxWarningLength>;

std::string ScreenPath(const std::string& home, const std::string& serial) {
    return home + "/screen-" + serial;
}

std::int64_t NowMilliseconds() {
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    return duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

[[noreturn]] void FailOnFile(const std::string& path) {
    const int error = errno;
    throw Failure(error == ENOSPC || error == EDQUOT ? kStateFull : kStateUnreachable,
                  path + ": " + std::strerror(error));
}

}  // namespace

void Store::ShowOnScreen(const std::string& serial, const std::string& text) {
    if (text.size() > kMaxWarningLength) throw Failure(kTooLong, "screen: at most 1024 bytes");
    ScreenImage image{};
    std::memcpy(image.data(), text.data(), text.size());
    const std::string path = ScreenPath(home_, serial);
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) FailOnFile(path);
    const ssize_t written = pwrite(file, image.data(), image.size(), 0);
    if (written < 0) {
        const int error = errno;
        close(file);
        errno = error;
        FailOnFile(path);
    }
    close(file);
    if (static_cast<std::size_t>(written) < image.size()) throw Failure(kStateFull, path);
}

std::string Store::Screen(const std::string& serial) {
    ScreenImage image{};
    const std::string path = ScreenPath(home_, serial);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        if (errno == ENOENT) return {};
        FailOnFile(path);
    }
    const ssize_t length = pread(file, image.data(), image.size(), 0);
    close(file);
    if (length <= 0) return {};
    return {image.data(), strnlen(image.data(), static_cast<std::size_t>(length))};
}

void Store::ForgetScreen(const std::string& serial) {
    unlink(ScreenPath(home_, serial).c_str());
}

int Store::DecideButton(const std::string& serial, Button decision) {
    Transaction transaction(*this);
    if (!FindKey(serial)) throw Failure(kKeyAbsent, serial);
    int answered = 0;
    if (decision != Button::kAsk) {
        // A question whose asker was killed ends at its deadline.
        db_->Prepare(
               "UPDATE prompts SET answer = ? WHERE serial = ? AND answer IS NULL AND deadline > ?")
            .Bind(static_cast<std::int64_t>(decision))
            .Bind(serial)
            .Bind(NowMilliseconds())
            .Run();
        answered = db_->Changes();
    }
    if (answered == 0) {
        db_->Prepare("UPDATE keys SET button = ? WHERE serial = ?")
            .Bind(static_cast<std::int64_t>(decision))
            .Bind(serial)
            .Run();
    }
    transaction.Commit();
    return answered;
}

std::int64_t Store::OpenPrompt(const std::string& serial, std::chrono::milliseconds patience) {
    const std::int64_t now = NowMilliseconds();
    Transaction transaction(*this);
    db_->Prepare("DELETE FROM prompts WHERE deadline <= ?").Bind(now).Run();
    db_->Prepare("INSERT INTO prompts(serial, deadline) VALUES(?, ?)")
        .Bind(serial)
        .Bind(now + static_cast<std::int64_t>(patience.count()))
        .Run();
    const std::int64_t id = db_->LastId();
    transaction.Commit();
    return id;
}

std::optional<Button> Store::PromptAnswer(std::int64_t promptId) {
    Statement query =
        db_->Prepare("SELECT answer FROM prompts WHERE id = ? AND answer IS NOT NULL");
    if (!query.Bind(promptId).Step()) return std::nullopt;
    return static_cast<Button>(query.Int(0));
}

void Store::ClosePrompt(std::int64_t promptId) {
    Transaction transaction(*this);
    db_->Prepare("DELETE FROM prompts WHERE id = ?").Bind(promptId).Run();
    transaction.Commit();
}

std::vector<Prompt> Store::WaitingPrompts(const std::string& serial) {
    std::vector<Prompt> prompts;
    Statement query = db_->Prepare(
        "SELECT id, serial, deadline FROM prompts WHERE serial = ? AND answer IS NULL AND"
        " deadline > ? ORDER BY id");
    query.Bind(serial).Bind(NowMilliseconds());
    while (query.Step()) prompts.push_back({query.Int(0), query.Text(1), query.Int(2)});
    return prompts;
}

}  // namespace softkey
