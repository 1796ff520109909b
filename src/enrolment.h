// Certificate requests: what the request information asks for, asked of the token library. Both
// functions store their result as the last error, and add to requests, joined by "||".
#ifndef KESTA_ENROLMENT_H
#define KESTA_ENROLMENT_H

#include "token_call.h"

namespace kesta {

// One request for each group, and the PIN verified before each.
int MakeRequests(const Token& token, const char* szSN, const char* requestInfo,
                 LgnString& requests);

// One request for each record that the groups make, at most three groups. initFlag 1 initialises
// the key first, 0 verifies the PIN once; any other is refused when the text has been read.
int MakeBatchRequests(const Token& token, const char* szSN, int initFlag, const char* requestInfo,
                      LgnString& requests);

}  // namespace kesta

#endif
