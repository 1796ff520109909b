// The room on a key that a plan has made small.
#ifndef SOFTKEY_TOKEN_ROOM_H
#define SOFTKEY_TOKEN_ROOM_H

#include <string>

#include "softkey/misbehaviour/effect.h"
#include "softkey/store/store.h"

namespace softkey {

class Room {
public:
    // Takes stock before a change. The store must live as long.
    Room(Store& store, std::string serial, const Limits& limits);
    // kStateFull when the change went over a limit; what was over it already may stay or shrink.
    void Require() const;

private:
    struct Stock {
        std::uint64_t pairs = 0;
        std::uint64_t objects = 0;
        std::uint64_t bytes = 0;  // values of data objects, certificates
    };
    static Stock Take(Store& store, const std::string& serial);

    Store& store_;
    std::string serial_;
    Limits limits_;
    Stock before_;
};

}  // namespace softkey

#endif
