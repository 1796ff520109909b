// How a key pair, an algorithm or a request is named on the command line. The numbers are the token
// library's; the words stand for those that the maker's requests use.
#ifndef UKEY_SELECTORS_H
#define UKEY_SELECTORS_H

#include <string>
#include <vector>

#include "session.h"

namespace ukey {

// A pair on the key: its CertType and its KeyType.
struct Pair {
    int type = 1;
    int algorithm = 2;

    unsigned first() const { return static_cast<unsigned>(type); }
    unsigned second() const { return static_cast<unsigned>(algorithm); }
    std::string Words() const;
};

// "signing", "encryption" or the number.
std::string CertTypeWord(int type);
std::string KeyTypeWord(int algorithm);

// --type sign|enc|N and --key-type rsa|sm2|N.
void AddPairOptions(const Options& options, Pair& pair);

// --key-type, and --hash-type sha1|sha256|sm3|N. 0 for the hash: the usual one of the algorithm.
void AddAlgorithmOptions(const Options& options, int& algorithm, int& hashType);
int HashTypeFor(int algorithm, int hashType);

// The groups of a request: words or numbers "TYPE:KEY:HASH".
kesta::RequestGroup ParseGroup(const std::string& text);

}  // namespace ukey

#endif
