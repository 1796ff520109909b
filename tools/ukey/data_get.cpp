#include "data_object.h"

namespace ukey {
namespace {

Exit Get(Session& session, const DataName& object) {
    object.Check();
    session.GiveText({TextForm::kExact, "value", N_("value"),
                      session.library().GetData(object.name, object.number)},
                     {{"name", object.name}, {"number", object.number}});
    return Exit::kOk;
}

}  // namespace

Action DataGet(const Options& options, Session& session) {
    const auto object = std::make_shared<DataName>();
    AddDataName(options, *object);
    options.Examples("  ukey data get branch-code");
    return Does(Get, session, object);
}

}  // namespace ukey
