# Included by a folder behind its find_package(OpenSSL): there OpenSSL::Crypto is the static library.
# The userlands that are served have an older OpenSSL, whose shared library has another name.
get_target_property(shared OpenSSL::Crypto IMPORTED_LOCATION)
string(REGEX REPLACE "\\.so$" ".a" static "${shared}")
if(NOT EXISTS "${static}")
    message(FATAL_ERROR "the runtime floor needs OpenSSL's static library, ${static}")
endif()
set_target_properties(OpenSSL::Crypto PROPERTIES IMPORTED_LOCATION "${static}")
