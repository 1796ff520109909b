// The subcommands that look at keys and handle them: list, show, insert, remove, delete.
#include "softkey/store/keys.h"

#include "softkey/admin/commands.h"
#include "softkey/admin/table.h"
#include "softkey/admin/view.h"
#include "softkey/store/home.h"
#include "softkey/store/pairs.h"

namespace softkey::admin {
namespace {

void List(const Session& session) {
    const std::unique_ptr<Store> store = Store::OpenExisting(StateHome());
    Json json = {{"keys", Json::array()}};
    Table table;
    table.Row({"SERIAL", "SLOT", "STATE", "PIN", "PAIRS", "CERTS", "MEDIA ID", "LABEL"});
    for (const KeyRecord& key : store ? KeyTable(*store).All() : std::vector<KeyRecord>()) {
        std::size_t certificates = 0;
        const auto pairs = PairTable(*store).Of(key.serial);
        for (const PairRecord& pair : pairs) certificates += pair.certificate.empty() ? 0U : 1U;
        Json object = KeyJson(key);
        object["pairs"] = pairs.size();
        object["certificates"] = certificates;
        json["keys"].push_back(object);
        table.Row({key.serial, std::to_string(key.slot), key.inserted ? "inserted" : "removed",
                   key.triesLeft == 0 ? "locked" : std::to_string(key.triesLeft) + " tries",
                   std::to_string(pairs.size()), std::to_string(certificates), key.mediaId,
                   Printable(key.label)});
    }
    session.Print(json, json["keys"].empty() ? "no keys\n" : table.Text());
}

void Show(const std::string& serial, const Session& session) {
    const std::unique_ptr<Store> store = OpenState();
    const KeyRecord key = ChooseKey(*store, serial);
    session.Print(KeyWithContentsJson(*store, key), KeyWithContentsText(*store, key));
}

void Move(const std::string& serial, bool insert, const Session& session) {
    const std::unique_ptr<Store> store = OpenState();
    const std::string chosen = ChooseKey(*store, serial).serial;
    const bool changed = KeyTable(*store).SetInserted(chosen, insert);
    const KeyRecord key = ChooseKey(*store, chosen);
    Json json = KeyJson(key);
    json["changed"] = changed;
    const std::string state = insert ? "inserted" : "removed";
    session.Print(json, changed ? state + " " + chosen + ", slot " + std::to_string(key.slot) + "\n"
                                : chosen + " was " + state + " already\n");
}

void Delete(const std::string& serial, const Session& session) {
    KeyTable(*OpenState()).Delete(serial);
    session.Print({{"deleted", serial}}, "deleted " + serial + "\n");
}

// A subcommand whose only argument is the optional serial number.
template <typename Work>
void AddForOneKey(CLI::App* command, Work work) {
    const auto serial = std::make_shared<std::string>();
    AddSerial(*command, *serial);
    command->callback([serial, work] { work(*serial); });
}

}  // namespace

void AddList(CLI::App& app, Session& session) {
    AddCommand(app, "list", "List the keys",
               "softkey list\n"
               "softkey list --json | jq -r '.keys[].serial'")
        ->callback([&session] { List(session); });
}

void AddShow(CLI::App& app, Session& session) {
    AddForOneKey(AddCommand(app, "show",
                            "Show a key with its key pairs, certificates and the names of its "
                            "data objects",
                            "softkey show\n"
                            "softkey show SK0001 --json"),
                 [&session](const std::string& serial) { Show(serial, session); });
}

void AddInsert(CLI::App& app, Session& session) {
    AddForOneKey(
        AddCommand(app, "insert", "Put a key into its slot; every waiting client sees the event",
                   "softkey insert\n"
                   "softkey insert SK0001"),
        [&session](const std::string& serial) { Move(serial, true, session); });
}

void AddRemove(CLI::App& app, Session& session) {
    AddForOneKey(AddCommand(app, "remove",
                            "Pull a key out; what it is doing ends, every waiting client sees the "
                            "event",
                            "softkey remove\n"
                            "softkey remove SK0001"),
                 [&session](const std::string& serial) { Move(serial, false, session); });
}

void AddDelete(CLI::App& app, Session& session) {
    const auto serial = std::make_shared<std::string>();
    CLI::App* const command = AddCommand(
        app, "delete", "Delete a key with all that is on it, for good", "softkey delete SK0001");
    command->add_option("serial", *serial, "Serial number of the key")
        ->type_name("SERIAL")
        ->required();
    command->callback([serial, &session] { Delete(*serial, session); });
}

}  // namespace softkey::admin
