// What the software key is asked while a call of it fails: every entry point of both libraries, on
// a key with all that a key can hold.
#ifndef TESTS_FAULTS_KEY_SCENARIOS_H
#define TESTS_FAULTS_KEY_SCENARIOS_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kesta/event_library.h"
#include "token_fixture.h"

struct EventLibrary {
#define FAULTS_EVENT_POINTER(result, name, arguments) kesta::event::name* name = nullptr;
    KESTA_EVENT_ENTRY_POINTS(FAULTS_EVENT_POINTER)
#undef FAULTS_EVENT_POINTER
};

struct Scenario {
    std::string name;
    std::function<int()> run;
    // Whether the process has verified the PIN, or has called nothing at all before.
    enum Before { kVerified, kNothing } before = kVerified;
    std::function<void()> prepare = [] {};
    bool wrongPin = false;
    bool slow = false;  // an RSA pair is made
};

// The folder holds the template of a state, from which each run starts, and what else is needed.
class KeyBench : public TokenTest {
public:
    KeyBench();

    void MakeTemplate();  // in a process of its own
    void ReadTexts();
    void PutTemplateInPlace() const;
    std::vector<Scenario> Scenarios();
    // All that is stored but the tries, as a text to compare.
    std::string State() const;
    int Tries() const { return TriesLeft(); }
    // What a folder holds, or what is damaged in it: nothing that must not be there.
    std::string Damage() const;
    void Verify() const { token.VerifyPIN(kSerial); }
    bool Works() const;

private:
    void TestBody() override {}
    std::string CertificateOfPair(const std::string& request);
    void AddTokenScenarios(std::vector<Scenario>& all);
    void AddPinScenarios(std::vector<Scenario>& all);
    void AddSpecialScenarios(std::vector<Scenario>& all);
    void AddEventScenarios(std::vector<Scenario>& all);

    EventLibrary events_;
    std::map<std::string, std::string> texts_;  // read before anything fails
};

#endif
