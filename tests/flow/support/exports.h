// The exports as the tests call them: texts in and out, the two calls of the buffer protocol
// inside.
#ifndef FLOW_EXPORTS_H
#define FLOW_EXPORTS_H

#include <string>

namespace flow {

struct Answer {
    int code;
    std::string text;  // empty on failure
};

Answer PrintNumber();
Answer MakeRequests(const std::string& serial, const std::string& information);
Answer MakeBatchRequests(const std::string& serial, int initialise, const std::string& information);
Answer ReadCertificate(const std::string& serial, unsigned certType, unsigned keyType);
Answer ReadName(const std::string& serial, unsigned certType, unsigned keyType);
Answer SignText(const std::string& serial, int keyType, int hashType, const std::string& text,
                const std::string& warning);
Answer SignDigest(const std::string& serial, int keyType, int hashType, const std::string& hash);
Answer SignList(const std::string& serial, int keyType, int hashType, const std::string& list);
Answer Decrypt(const std::string& serial, const std::string& cipher);
Answer Message(int code);

}  // namespace flow

#endif
