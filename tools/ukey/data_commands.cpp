// label get, set; data get, set; charset; language.
#include "commands.h"
#include "kesta/places.h"
#include "selectors.h"

namespace ukey {
namespace {

namespace limits = kesta::limits;

struct DataWish {
    std::string name;
    std::string value;
    std::string file;
    unsigned number = 0;
    PinRule pin;
};
using SharedDataWish = std::shared_ptr<DataWish>;
using DataStep = Exit (*)(Session&, const DataWish&);

Exit GetLabel(Session& session, const DataWish&) {
    const std::string serial = session.Serial();
    GiveText(session, TextForm::kLine, "label", session.library().GetLabel(serial),
             {{"serial", serial}});
    return Exit::kOk;
}

Exit SetLabel(Session& session, const DataWish& wish) {
    const std::string serial = session.Serial();
    VerifyFirst(session, wish.pin, serial);
    session.library().SetLabel(serial, wish.value);
    GiveDone(session, "the label is \"" + wish.value + "\"",
             {{"serial", serial}, {"label", wish.value}});
    return Exit::kOk;
}

void CheckName(const DataWish& wish) {
    const std::size_t length = wish.name.size();
    if (length < limits::kShortestDataName || length > limits::kLongestDataName) {
        throw UsageError("NAME has " + std::to_string(length) + " characters; the library takes " +
                         std::to_string(limits::kShortestDataName) + " to " +
                         std::to_string(limits::kLongestDataName));
    }
}

Exit GetData(Session& session, const DataWish& wish) {
    CheckName(wish);
    GiveText(session, TextForm::kExact, "value", session.library().GetData(wish.name, wish.number),
             {{"name", wish.name}, {"number", wish.number}});
    return Exit::kOk;
}

Exit SetData(Session& session, const DataWish& wish) {
    CheckName(wish);
    const std::string value =
        wish.value.empty() ? ReadInput(wish.file.empty() ? "-" : wish.file) : wish.value;
    if (value.size() > limits::kLongestData) {
        throw UsageError("the value has " + std::to_string(value.size()) +
                         " characters; the library takes at most " +
                         std::to_string(limits::kLongestData));
    }
    if (!wish.pin.skip) VerifyFirst(session, wish.pin, session.Serial());
    session.library().SetData(wish.name, wish.number, value);
    GiveDone(session, "stored " + std::to_string(value.size()) + " bytes as " + wish.name,
             {{"name", wish.name}, {"number", wish.number}, {"length", value.size()}});
    return Exit::kOk;
}

// The library hands the two arguments on in reverse; the token library takes the key first. No key
// need be there: the messages that say so have a language too.
Exit SetCharset(Session& session, const DataWish& wish) {
    const std::string& serial = session.givenSerial;
    session.library().SetCharset(wish.value, serial);
    GiveDone(session, "the charset is " + wish.value, {{"charset", wish.value}});
    return Exit::kOk;
}

Exit SetLanguage(Session& session, const DataWish& wish) {
    const std::string& serial = session.givenSerial;
    session.library().SetLanguage(wish.value, serial);
    GiveDone(session, "the language is " + wish.value, {{"language", wish.value}});
    return Exit::kOk;
}

CLI::App* AddStep(CLI::App& parent, Session& session, const std::string& name,
                  const std::string& description, const std::string& examples, const Takes& takes,
                  DataStep step, const SharedDataWish& wish) {
    CLI::App* const command = AddCommand(parent, session, name, description, examples, takes);
    command->callback([&session, step, wish] {
        session.action = [&session, step, wish] { return step(session, *wish); };
    });
    return command;
}

void AddLabel(CLI::App& app, Session& session) {
    CLI::App* const label = app.add_subcommand("label", "Read or write the key's label");
    label->require_subcommand(1);
    auto wish = std::make_shared<DataWish>();
    AddStep(*label, session, "get", "Print the label", "  ukey label get", {true, true, true},
            GetLabel, wish);
    CLI::App* const set = AddStep(*label, session, "set", "Write the label",
                                  "  ukey label set 'Accounts, second floor'", {}, SetLabel, wish);
    set->add_option("LABEL", wish->value, "The new label")->type_name("LABEL")->required();
    AddPinOption(*set, wish->pin);
}

void AddData(CLI::App& app, Session& session) {
    CLI::App* const data = app.add_subcommand("data", "Read or write a named data object");
    data->require_subcommand(1);
    auto wish = std::make_shared<DataWish>();
    CLI::App* const get =
        AddStep(*data, session, "get", "Print a data object", "  ukey data get branch-code",
                {true, false, true}, GetData, wish);
    CLI::App* const set =
        AddStep(*data, session, "set", "Write a data object of at most 300 characters",
                "  ukey data set branch-code --value 0417\n  ukey data set branch-code < code.txt",
                {}, SetData, wish);
    for (CLI::App* const command : {get, set}) {
        command->add_option("NAME", wish->name, "10 to 16 characters")
            ->type_name("NAME")
            ->required();
        command->add_option("--number", wish->number, "The token library's selector, by default 0")
            ->type_name("N");
    }
    CLI::Option* const file =
        set->add_option("file", wish->file, "Holds the value; standard input without it")
            ->type_name("FILE");
    set->add_option("--value", wish->value, "The value, given here")
        ->type_name("TEXT")
        ->excludes(file);
    AddPinOption(*set, wish->pin);
}

void AddLocale(CLI::App& app, Session& session) {
    auto charset = std::make_shared<DataWish>();
    AddStep(app, session, "charset", "Choose the charset of the token library's texts",
            "  ukey charset GB18030     where the token library keeps it beyond the process", {},
            SetCharset, charset)
        ->add_option("CHARSET", charset->value, "A name that the token library knows")
        ->type_name("CHARSET")
        ->required();
    auto language = std::make_shared<DataWish>();
    AddStep(app, session, "language", "Choose the language of the token library's texts",
            "  ukey language zh_CN      where the token library keeps it beyond the process", {},
            SetLanguage, language)
        ->add_option("LANGUAGE", language->value, "A name that the token library knows")
        ->type_name("LANGUAGE")
        ->required();
}

}  // namespace

void AddDataCommands(CLI::App& app, Session& session) {
    AddLabel(app, session);
    AddData(app, session);
    AddLocale(app, session);
}

}  // namespace ukey
