// The button, and the questions that wait for it. A decision given while a question waits answers
// that question alone; given while none waits it is what happens to every question to come. kAsk
// lets each question wait.
#ifndef SOFTKEY_STORE_QUESTIONS_H
#define SOFTKEY_STORE_QUESTIONS_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey {

class QuestionTable : private Table {
public:
    using Table::Table;

    // Returns how many waiting questions were answered.
    int Decide(const std::string& serial, Button decision);
    std::int64_t Open(const std::string& serial, std::chrono::milliseconds patience);
    std::optional<Button> Answer(std::int64_t questionId);
    void Close(std::int64_t questionId);
    std::vector<Question> Waiting(const std::string& serial);
};

}  // namespace softkey

#endif
