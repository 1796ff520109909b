#include "softkey/token/room.h"

#include <utility>

#include "softkey/store/objects.h"
#include "softkey/store/pairs.h"

namespace softkey {

Room::Room(Store& store, std::string serial, const Limits& limits)
    : store_(store), serial_(std::move(serial)), limits_(limits), before_(Take(store_, serial_)) {}

Room::Stock Room::Take(Store& store, const std::string& serial) {
    Stock stock;
    for (const PairRecord& pair : PairTable(store).Of(serial)) {
        ++stock.pairs;
        stock.bytes += pair.certificate.size();
    }
    for (const DataObject& object : ObjectTable(store).Of(serial)) {
        ++stock.objects;
        stock.bytes += object.value.size();
    }
    return stock;
}

void Room::Require() const {
    const Stock now = Take(store_, serial_);
    const auto require = [](std::uint64_t before, std::uint64_t after,
                            const std::optional<std::uint64_t>& most) {
        if (most && after > *most && after > before) throw Failure(kStateFull);
    };
    require(before_.pairs, now.pairs, limits_.pairs);
    require(before_.objects, now.objects, limits_.objects);
    require(before_.bytes, now.bytes, limits_.bytes);
}

}  // namespace softkey
