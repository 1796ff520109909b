#include "data_object.h"
#include "input.h"
#include "kesta/places.h"

namespace ukey {
namespace {

struct Wish {
    DataName object;
    Input value;
};

Exit Set(Session& session, const Wish& wish) {
    wish.object.Check();
    const std::string value = wish.value.Read();
    if (value.size() > kesta::limits::kLongestData) {
        throw UsageError(
            Fill(_("the value has {1} characters; the library takes at most {2}"),
                 {std::to_string(value.size()), std::to_string(kesta::limits::kLongestData)}));
    }
    if (!session.skipPin) session.VerifyPin(session.Serial());
    session.library().SetData(wish.object.name, wish.object.number, value);
    session.GiveDone(
        Fill(_("stored {1} bytes as {2}"), {std::to_string(value.size()), wish.object.name}),
        {{"name", wish.object.name}, {"number", wish.object.number}, {"length", value.size()}});
    return Exit::kOk;
}

}  // namespace

Action DataSet(const Options& options, Session& session) {
    const auto wish = std::make_shared<Wish>();
    AddDataName(options, wish->object);
    AddInput(options, wish->value, "--value",
             N_("Holds the value, which may not be empty; standard input without it"),
             N_("The value, given here; '' stores an empty one"));
    options.Examples(
        "  ukey data set branch-code --value 0417\n  ukey data set branch-code < code.txt");
    return Does(Set, session, wish);
}

}  // namespace ukey
