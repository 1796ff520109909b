#include "softkey/store/objects.h"

#include "softkey/result.h"
#include "softkey/store/database.h"
#include "softkey/store/keys.h"

namespace softkey {

void ObjectTable::Set(const std::string& serial, const DataObject& object) {
    if (object.value.size() > kMaxDataLength) {
        throw Failure(kTooLong, Sentence("value of {1}: at most 259 bytes", {object.name}));
    }
    Transaction transaction(store_);
    if (!KeyTable(store_).Find(serial)) throw Failure(kKeyAbsent, serial);
    db().Prepare("INSERT OR REPLACE INTO data(serial, name, number, value) VALUES(?, ?, ?, ?)")
        .Bind(serial)
        .Bind(object.name)
        .Bind(static_cast<std::int64_t>(object.number))
        .Bind(object.value)
        .Run();
    transaction.Commit();
}

std::optional<std::string> ObjectTable::Get(const std::string& serial, const std::string& name,
                                            std::uint32_t number) {
    Statement query =
        db().Prepare("SELECT value FROM data WHERE serial = ? AND name = ? AND number = ?");
    if (!query.Bind(serial).Bind(name).Bind(static_cast<std::int64_t>(number)).Step()) {
        return std::nullopt;
    }
    return query.Text(0);
}

std::vector<DataObject> ObjectTable::Of(const std::string& serial) {
    std::vector<DataObject> objects;
    Statement query =
        db().Prepare("SELECT name, number, value FROM data WHERE serial = ? ORDER BY name, number");
    query.Bind(serial);
    while (query.Step()) {
        objects.push_back({query.Text(0), static_cast<std::uint32_t>(query.Int(1)), query.Text(2)});
    }
    return objects;
}

}  // namespace softkey
