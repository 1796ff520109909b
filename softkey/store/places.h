// The files of a state folder.
#ifndef SOFTKEY_STORE_PLACES_H
#define SOFTKEY_STORE_PLACES_H

#include <string>

namespace softkey {

constexpr char kDatabaseName[] = "softkey.db";
inline std::string DatabasePath(const std::string& home) {
    return home + "/" + kDatabaseName;
}
// The database as it will be, until it takes the place of the other.
inline std::string NewDatabasePath(const std::string& home) {
    return home + "/softkey.db.new";
}
inline std::string GuardPath(const std::string& home) {
    return home + "/softkey.guard";
}
// What earlier versions kept beside the database.
inline std::string OldLogPath(const std::string& home) {
    return home + "/softkey.db-wal";
}
inline std::string OldIndexPath(const std::string& home) {
    return home + "/softkey.db-shm";
}

}  // namespace softkey

#endif
