#include "ready_plans.h"

#include <iterator>

#include "kit/text.h"

namespace softkey::command {

using kit::N_;

namespace {

constexpr ReadyPlan kPlans[] = {
    {"slow", N_("Each operation takes a second: is the client's window alive meanwhile?"),
     R"({"rules": [{"entry": "*", "delay_ms": 1000}]})"},
    {"hang", N_("The second signature never ends until the key is pulled out: can the user go on?"),
     R"({"rules": [{"entry": "GMUsbKeyCriticalSign", "call": 2, "hang": true},
           {"entry": "GMUsbKeyCommonSign", "call": 2, "hang": true},
           {"entry": "Batch_Sign", "call": 2, "hang": true}]})"},
    {"flaky-socket", N_("Each fifth operation loses the key for a moment, and each event bounces."),
     R"({"rules": [{"entry": "*", "every": 5, "remove": "moment"},
           {"entry": "ValtoT_WaitForEvent", "bounce": 1}]})"},
    {"pulled-out", N_("The key is pulled out in the middle of the first change or signature."),
     R"({"rules": [
  {"entry": "GMCreatePKCS10", "call": 1, "remove": "during"},
  {"entry": "GMCreatePKCS10Ex", "call": 1, "remove": "during"},
  {"entry": "GMWritePKCS7", "call": 1, "remove": "during"},
  {"entry": "GMImportPriKey", "call": 1, "remove": "during"},
  {"entry": "GMUsbKeyCriticalSign", "call": 1, "remove": "during"},
  {"entry": "GMUsbKeyCommonSign", "call": 1, "remove": "during"},
  {"entry": "Batch_Sign", "call": 1, "remove": "during"}]})"},
    {"other-slot", N_("The first operation ends since the key moves to slot 9."),
     R"({"rules": [{"entry": "*", "call": 1, "remove": "moment", "slot": 9}]})"},
    {"lost-answers",
     N_("Requests, imports and data are stored, but the answer is an error: is it safe to "
        "repeat?"),
     R"({"rules": [
  {"entry": "GMCreatePKCS10", "call": 1, "code_after": "KeyRemoved"},
  {"entry": "GMCreatePKCS10Ex", "call": 1, "code_after": "KeyRemoved"},
  {"entry": "GMWritePKCS7", "call": 1, "code_after": "KeyRemoved"},
  {"entry": "GMImportPriKey", "call": 1, "code_after": "KeyRemoved"},
  {"entry": "SetData", "call": 1, "code_after": "KeyRemoved"}]})"},
    {"silent", N_("Success, but nothing is handed out: no request, no certificate, no label."),
     R"({"rules": [{"entry": "*", "output": "none"},
           {"entry": "X_ErrorConvert_UOS", "output": "none"}]})"},
    {"garbage", N_("What is read from the key is noise of the right length."),
     R"({"rules": [{"entry": "*", "output": "garbage"},
           {"entry": "ValtoT_GetDeviceInfo", "output": "garbage"}]})"},
    {"cut", N_("What is read from the key is only its first half."),
     R"({"rules": [{"entry": "*", "output": "cut"}]})"},
    {"unterminated", N_("What is read from the key fills its buffer and has no NUL."),
     R"({"rules": [{"entry": "*", "output": "unterminated"},
           {"entry": "ValtoT_GetDeviceInfo", "output": "unterminated"}]})"},
    {"liar", N_("Lengths are far beyond what was written: who believes them reads too far."),
     R"({"rules": [{"entry": "*", "length": 100000},
           {"entry": "ValtoT_GetSlotList", "length": 100000}]})"},
    {"throws", N_("Each third operation throws an exception, which passes through the library."),
     R"({"rules": [{"entry": "*", "every": 3, "throw": true}]})"},
    {"crash", N_("The first signature takes the process down: what is left behind?"),
     R"({"rules": [{"entry": "GMUsbKeyCriticalSign", "crash": "fault"},
           {"entry": "GMUsbKeyCommonSign", "crash": "fault"},
           {"entry": "Batch_Sign", "crash": "fault"}]})"},
    {"full", N_("The key has room for two key pairs and two data objects."),
     R"({"limits": {"pairs": 2, "objects": 2}})"},
    {"locked-soon", N_("One PIN try is left: does the client warn before it is used up?"),
     R"({"tries_left": 1})"},
    {"taken", N_("The process that comes first has the key to itself; others find it busy."),
     R"({"rules": [{"entry": "*", "exclusive": true}]})"},
    {"foreign-device", N_("A device that is no key stands in slot 9, and its arrival is told."),
     R"({"foreign": [9]})"},
    {"lost-events", N_("Each second event is never told: does the client look for itself?"),
     R"({"rules": [{"entry": "ValtoT_WaitForEvent", "every": 2, "lose": true}]})"},
    {"late-events", N_("Each second event comes only after the next one."),
     R"({"rules": [{"entry": "ValtoT_WaitForEvent", "every": 2, "late": 1}]})"},
};

}  // namespace

const std::vector<ReadyPlan>& ReadyPlans() {
    static const std::vector<ReadyPlan> plans(std::begin(kPlans), std::end(kPlans));
    return plans;
}

const ReadyPlan* FindReadyPlan(const std::string& name) {
    for (const ReadyPlan& plan : ReadyPlans()) {
        if (name == plan.name) return &plan;
    }
    return nullptr;
}

}  // namespace softkey::command
