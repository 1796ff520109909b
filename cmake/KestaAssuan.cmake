# kesta_assuan: libassuan, which says in a header of libgpg-error how it reports.
#
# Debian's -dev packages of the two cannot be there for two architectures at once. A cross build takes
# the machine's own headers, which differ in the size of a lock alone that nothing here uses, and the
# shared library by its full name.
find_library(KESTA_ASSUAN_LIBRARY NAMES assuan libassuan.so.0 REQUIRED)
find_path(KESTA_ASSUAN_INCLUDE assuan.h REQUIRED)
add_library(kesta_assuan INTERFACE)
target_link_libraries(kesta_assuan INTERFACE "${KESTA_ASSUAN_LIBRARY}")
if(CMAKE_CROSSCOMPILING)
    find_file(KESTA_GPG_ERROR_HEADER gpg-error.h PATH_SUFFIXES x86_64-linux-gnu REQUIRED)
    configure_file("${KESTA_GPG_ERROR_HEADER}" "${CMAKE_BINARY_DIR}/assuan/gpg-error.h" COPYONLY)
    target_include_directories(kesta_assuan SYSTEM INTERFACE "${CMAKE_BINARY_DIR}/assuan")
endif()
