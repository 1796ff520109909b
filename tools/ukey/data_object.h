// How a data object is named on the command line.
#ifndef UKEY_DATA_OBJECT_H
#define UKEY_DATA_OBJECT_H

#include <string>

#include "session.h"

namespace ukey {

struct DataName {
    std::string name;
    unsigned number = 0;

    // Throws UsageError for what the library would refuse.
    void Check() const;
};

void AddDataName(const Options& options, DataName& object);

}  // namespace ukey

#endif
