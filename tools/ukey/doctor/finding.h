// What doctor has to say: one finding for each thing that was looked at.
#ifndef UKEY_DOCTOR_FINDING_H
#define UKEY_DOCTOR_FINDING_H

#include <optional>
#include <string>
#include <vector>

#include "kesta/ukey.hpp"
#include "kit/certificate.h"
#include "names.h"

namespace ukey {

enum class Severity {
    kProblem,  // the key cannot, or must not, be used while this lasts
    kWarning,  // something is missing that may be wanted
    kFine,
};

struct Finding {
    std::string id;  // stable, for programs: "token-library.entry-points"
    Severity severity = Severity::kFine;
    std::string subject;
    std::string detail;
    std::string remedy;  // empty when all is fine
};

struct EntryPoint {
    std::string library;
    std::string name;
    bool found = false;
};

// A certificate on the key, as far as it could be read.
struct KeyCertificate {
    std::string words;  // "signing SM2"
    std::optional<CertificateFacts> facts;
};

// What the key said of itself.
struct KeyFacts {
    std::string serial;
    std::optional<kesta::Tries> tries;
    std::vector<KeyCertificate> certificates;
};

// A library as it was found, whether or not it is of any use.
struct LibraryFile {
    std::string id;       // "token-library"
    std::string subject;  // for a person
    std::string path;
};

struct Report {
    std::string root;
    bool installed = false;    // the install directory is there and open
    bool softwareKey = false;  // what stands there is the software key
    std::optional<KeyFacts> key;
    std::string version;                 // of the client library, where it was asked
    std::vector<LibraryFile> libraries;  // those that are there
    std::vector<std::string> paths;      // tried, in order
    std::vector<Finding> findings;
    std::vector<EntryPoint> entryPoints;

    void Fine(const std::string& id, const std::string& subject, const std::string& detail);
    void Warn(const std::string& id, const std::string& subject, const std::string& detail,
              const std::string& remedy);
    void Problem(const std::string& id, const std::string& subject, const std::string& detail,
                 const std::string& remedy);

    std::size_t Count(Severity severity) const;
    // Problems first, then warnings; within each, causes before consequences.
    void Rank();
    // One sentence that says how things stand.
    std::string Verdict() const;
};

Json ToJson(const Report& report);
void Print(const Report& report, bool everything);

}  // namespace ukey

#endif
