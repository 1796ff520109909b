// A pinentry of the test's own, put in front of PATH.
#ifndef TESTS_SOFTKEY_PINENTRY_FIXTURE_H
#define TESTS_SOFTKEY_PINENTRY_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "softkey/pin/assuan.h"
#include "softkey/pin/pinentry.h"
#include "temporary_folder.h"

// A pinentry of bash: greets, notes every request, answers GETPIN by the given lines and all else
// by OK, until BYE.
inline constexpr char kObedient[] = R"(#!/bin/bash
echo "OK Pleased to meet you"
while IFS= read -r line; do
    printf '%s\n' "$line" >>"$NOTES"
    case $line in
    BYE*) echo "OK closing connection"; exit 0 ;;
    GETPIN*) GETPIN_LINES ;;
    *) echo OK ;;
    esac
done
)";

class Pinentry : public testing::Test {
protected:
    Pinentry() {
        context_.serial = "SK1";
        context_.language = softkey::Language::kEnglish;
        context_.patience = std::chrono::milliseconds(1500);
        context_.protocolPatience = std::chrono::milliseconds(1500);
    }

    void Install(const std::string& script) {
        chmod(folder_.Write("pinentry", script).c_str(), 0700);
    }

    void InstallObedient(const std::string& getPinLines) {
        std::string script = kObedient;
        const std::string mark = "GETPIN_LINES";
        script.replace(script.find(mark), mark.size(), getPinLines);
        Install(script);
    }

    std::string Notes() const { return folder_.Read("notes"); }

    TemporaryFolder folder_;
    softkey::PinContext context_;
    softkey::SecretText pin_;

private:
    ScopedVariable path_{"PATH", (folder_.Path() + ":/usr/bin:/bin").c_str()};
    ScopedVariable notes_{"NOTES", folder_.File("notes").c_str()};
    ScopedVariable pinVariable_{"KESTA_SOFTKEY_PIN", nullptr};
    ScopedVariable newPinVariable_{"KESTA_SOFTKEY_NEW_PIN", nullptr};
};

#endif
