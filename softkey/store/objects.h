// The data objects on the keys.
#ifndef SOFTKEY_STORE_OBJECTS_H
#define SOFTKEY_STORE_OBJECTS_H

#include <optional>
#include <string>
#include <vector>

#include "softkey/store/records.h"
#include "softkey/store/store.h"

namespace softkey {

class ObjectTable : private Table {
public:
    using Table::Table;

    void Set(const std::string& serial, const DataObject& object);
    std::optional<std::string> Get(const std::string& serial, const std::string& name,
                                   std::uint32_t number);
    std::vector<DataObject> Of(const std::string& serial);
};

}  // namespace softkey

#endif
