# find_package(kesta_unified_zrkukey) gives the target kesta::kesta_unified_zrkukey: link to it and
# include <kesta_unified_zrkukey.h>, or <kesta/ukey.hpp> from C++17.
include("${CMAKE_CURRENT_LIST_DIR}/kesta_unified_zrkukey-targets.cmake")
