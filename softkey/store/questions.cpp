#include "softkey/store/questions.h"

#include "softkey/result.h"
#include "softkey/store/database.h"
#include "softkey/store/keys.h"

namespace softkey {
namespace {

std::int64_t NowMilliseconds() {
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    return duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

int QuestionTable::Decide(const std::string& serial, Button decision) {
    Transaction transaction(store_);
    if (!KeyTable(store_).Find(serial)) throw Failure(kKeyAbsent, serial);
    int answered = 0;
    if (decision != Button::kAsk) {
        // A question whose asker was killed ends at its deadline.
        db().Prepare(
                "UPDATE prompts SET answer = ? WHERE serial = ? AND answer IS NULL AND deadline > "
                "?")
            .Bind(static_cast<std::int64_t>(decision))
            .Bind(serial)
            .Bind(NowMilliseconds())
            .Run();
        answered = db().Changes();
    }
    if (answered == 0) {
        db().Prepare("UPDATE keys SET button = ? WHERE serial = ?")
            .Bind(static_cast<std::int64_t>(decision))
            .Bind(serial)
            .Run();
    }
    transaction.Commit();
    return answered;
}

std::int64_t QuestionTable::Open(const std::string& serial, std::chrono::milliseconds patience) {
    const std::int64_t now = NowMilliseconds();
    Transaction transaction(store_);
    db().Prepare("DELETE FROM prompts WHERE deadline <= ?").Bind(now).Run();
    db().Prepare("INSERT INTO prompts(serial, deadline) VALUES(?, ?)")
        .Bind(serial)
        .Bind(now + static_cast<std::int64_t>(patience.count()))
        .Run();
    const std::int64_t id = db().LastId();
    transaction.Commit();
    return id;
}

std::optional<Button> QuestionTable::Answer(std::int64_t questionId) {
    Statement query =
        db().Prepare("SELECT answer FROM prompts WHERE id = ? AND answer IS NOT NULL");
    if (!query.Bind(questionId).Step()) return std::nullopt;
    return static_cast<Button>(query.Int(0));
}

void QuestionTable::Close(std::int64_t questionId) {
    Transaction transaction(store_);
    db().Prepare("DELETE FROM prompts WHERE id = ?").Bind(questionId).Run();
    transaction.Commit();
}

std::vector<Question> QuestionTable::Waiting(const std::string& serial) {
    std::vector<Question> questions;
    Statement query = db().Prepare(
        "SELECT id, serial, deadline FROM prompts WHERE serial = ? AND answer IS NULL AND"
        " deadline > ? ORDER BY id");
    query.Bind(serial).Bind(NowMilliseconds());
    while (query.Step()) questions.push_back({query.Int(0), query.Text(1), query.Int(2)});
    return questions;
}

}  // namespace softkey
