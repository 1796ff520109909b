#include "data_object.h"

#include "kesta/places.h"

namespace ukey {

namespace limits = kesta::limits;

void DataName::Check() const {
    if (name.size() < limits::kShortestDataName || name.size() > limits::kLongestDataName) {
        throw UsageError(
            Fill(_("NAME has {1} characters; the library takes {2} to {3}"),
                 {std::to_string(name.size()), std::to_string(limits::kShortestDataName),
                  std::to_string(limits::kLongestDataName)}));
    }
}

void AddDataName(const Options& options, DataName& object) {
    options.Text("NAME", object.name, "NAME", N_("10 to 16 characters")).Required();
    options.Number("--number", object.number, 0, 0xFFFFFFFF, "N",
                   N_("The token library's selector, by default 0"));
}

}  // namespace ukey
