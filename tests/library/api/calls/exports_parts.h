// The exports of which other files of the model tell.
#ifndef KESTA_CALLS_EXPORTS_PARTS_H
#define KESTA_CALLS_EXPORTS_PARTS_H

#include "exports.h"

namespace calls {

Prepared certificate(Arguments& draw);
Prepared certificate_name(Arguments& draw);
Prepared certificate_info(Arguments& draw);
Prepared delete_certificate(Arguments& draw);
Prepared sign(Arguments& draw);
Prepared sign_hash(Arguments& draw);
Prepared batch_sign(Arguments& draw);
Prepared decrypt(Arguments& draw);
Prepared get_label(Arguments& draw);
Prepared set_data(Arguments& draw);
Prepared get_data(Arguments& draw);
Prepared request(Arguments& draw);
Prepared batch_request(Arguments& draw);
Prepared import_one(Arguments& draw);
Prepared import_encryption(Arguments& draw);
Prepared import_several(Arguments& draw);

// Forwards whatever it is given; clears the last error first or not.
inline int passed_on(Model& m, const char* entry, const std::vector<Expected>& arguments) {
    m.initialise_on_first_use();
    return m.forward(entry, arguments);
}

}  // namespace calls

#endif
