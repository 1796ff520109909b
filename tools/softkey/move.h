// Putting a key into its slot and pulling it out, which are told alike.
#ifndef SOFTKEY_COMMAND_MOVE_H
#define SOFTKEY_COMMAND_MOVE_H

#include "softkey/store/keys.h"
#include "state.h"
#include "view.h"

namespace softkey::command {

inline Exit Move(Console& console, const std::string& serial, bool insert,
                 std::optional<std::uint32_t> slot = std::nullopt) {
    const std::unique_ptr<Store> store = OpenState();
    const std::string chosen = ChooseKey(*store, serial).serial;
    const bool changed = KeyTable(*store).SetInserted(chosen, insert, slot);
    const KeyRecord key = ChooseKey(*store, chosen);
    Json fields = KeyJson(key);
    fields["changed"] = changed;
    const char* const done = insert ? _("inserted {1}, slot {2}") : _("removed {1}, slot {2}");
    const char* const none = insert ? _("{1} was inserted already") : _("{1} was removed already");
    console.GiveDone(Fill(changed ? done : none, {chosen, std::to_string(key.slot)}), fields);
    return kExitDone;
}

}  // namespace softkey::command

#endif
