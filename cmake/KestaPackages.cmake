# Debian packages of what KestaInstall lays down, one for each component. packaging/make-packages
# builds them.
set(documents "${PROJECT_SOURCE_DIR}/packaging/debian")
set(packages_folder "${PROJECT_BINARY_DIR}/package-files")

# kesta_package(COMPONENT NAME SECTION DEPENDS SUMMARY DESCRIPTION)
macro(kesta_package component name section depends summary description)
    string(TOUPPER "${component}" upper)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME "${name}")
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION "${section}")
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${description}")
    install(FILES "${documents}/copyright" "${packages_folder}/changelog.Debian.gz"
            DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${name}" COMPONENT ${component})
    if(EXISTS "${documents}/${name}.lintian-overrides")
        install(FILES "${documents}/${name}.lintian-overrides" RENAME "${name}"
                DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides" COMPONENT ${component})
    endif()
endmacro()

# The linker's maps, from which packaging/make-boms reads what went into a file.
function(kesta_map_folder folder)
    get_property(targets DIRECTORY "${folder}" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY)$")
            target_link_options(${target} PRIVATE "-Wl,-Map=${PROJECT_BINARY_DIR}/maps/${target}.map")
        endif()
    endforeach()
    get_property(folders DIRECTORY "${folder}" PROPERTY SUBDIRECTORIES)
    foreach(inner IN LISTS folders)
        kesta_map_folder("${inner}")
    endforeach()
endfunction()
file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/maps")
kesta_map_folder("${PROJECT_SOURCE_DIR}")

find_program(KESTA_GZIP gzip REQUIRED)
file(MAKE_DIRECTORY "${packages_folder}")
execute_process(COMMAND "${KESTA_GZIP}" -9nc "${documents}/changelog"
                OUTPUT_FILE "${packages_folder}/changelog.Debian.gz" COMMAND_ERROR_IS_FATAL ANY)

set(CPACK_COMPONENTS_ALL "")
file(STRINGS "${documents}/changelog" newest LIMIT_COUNT 1)
if(NOT newest MATCHES "\\(${PROJECT_VERSION}-([0-9]+)\\)")
    message(FATAL_ERROR "packaging/debian/changelog does not begin with a revision of ${PROJECT_VERSION}")
endif()
set(revision "${CMAKE_MATCH_1}")
set(this_version "${PROJECT_VERSION}-${revision}")
# By hand: the tools that would compute them look for the maker's library, which no package brings.
# The second name of the unwinder is that of Debian 10.
file(STRINGS "${PROJECT_SOURCE_DIR}/packaging/floor/versions" floor REGEX "^(glibc|gcc)_floor=")
string(REGEX REPLACE ".*glibc_floor=([0-9.]+).*" "\\1" glibc_floor "${floor}")
string(REGEX REPLACE ".*gcc_floor=([0-9]+).*" "\\1" gcc_floor "${floor}")
set(old_runtime "libc6 (>= ${glibc_floor}), libstdc++6 (>= ${gcc_floor}), \
libgcc-s1 | libgcc1 (>= 1:${gcc_floor})")
kesta_package(runtime libkesta-unified-zrkukey libs "${old_runtime}"
    "flat C interface to an SM2 USB security key"
    "Lets a client enrol, sign and decrypt with a USB security key through the
maker's token library, which the maker's own package installs.")
kesta_package(development libkesta-unified-zrkukey-dev libdevel
    "libkesta-unified-zrkukey (= ${this_version})"
    "flat C interface to an SM2 USB security key (development)"
    "Headers, CMake package, pkg-config file, manual pages, task pages and examples.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${documents}/triggers")

# As the policy wants them; the same bytes each time.
foreach(component IN ITEMS development tools softkey)
    install(CODE "set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}\")
        file(GLOB pages \"\${folder}/man*/*.[1-9]\" \"\${folder}/zh_CN/man*/*.[1-9]\")
        if(pages)
            execute_process(COMMAND \"${KESTA_GZIP}\" -9nf \${pages} COMMAND_ERROR_IS_FATAL ANY)
        endif()" COMPONENT ${component})
endforeach()

if(TARGET ukey)
    kesta_package(tools kesta-ukey utils
        "libkesta-unified-zrkukey (= ${this_version}), ${old_runtime}"
        "command-line client of an SM2 USB security key"
        "Reads, enrols and uses a USB security key, and finds out why one does not
work.")
    # The command and the recorder contain code of these.
    foreach(contained IN ITEMS libssl-dev libcli11-dev nlohmann-json3-dev libsodium-dev
            libmsgpack-dev libminizip-dev zlib1g-dev)
        install(FILES "/usr/share/doc/${contained}/copyright" RENAME "${contained}" COMPONENT tools
                DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/kesta-ukey/third-party" OPTIONAL)
    endforeach()
endif()
# Nothing of it is compiled.
if(TARGET ukey)
    kesta_package(python python3-kesta-ukey python
        "libkesta-unified-zrkukey (= ${this_version}), python3 (>= 3.9)"
        "USB security key with SM2 keys, from Python"
        "Certificate requests, signatures and decryption with a USB security key, with
exceptions for each kind of failure and insertion and removal as events.")
    set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
        "${documents}/python3-kesta-ukey/postinst;${documents}/python3-kesta-ukey/prerm")
    file(GLOB modules CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/bindings/python/kesta_ukey/*.*")
    install(FILES ${modules} DESTINATION lib/python3/dist-packages/kesta_ukey COMPONENT python)
endif()
if(TARGET softkey_command)
    kesta_package(softkey kesta-softkey devel
        "libkesta-unified-zrkukey (= ${this_version}), kesta-ukey (= ${this_version}), bubblewrap, \
gettext-base, libassuan0 (>= 2.5), libc6 (>= 2.36), libgcc-s1 (>= 4.2), \
libsqlite3-0 (>= 3.40), libssl3 (>= 3.0), libstdc++6 (>= 12)"
        "software stand-in for an SM2 USB security key"
        "What a client's developer uses instead of hardware: token library and event
library with real cryptography, the softkey command, and a sandbox that shows
them to one client at the place of the maker's libraries. That place itself is
never touched.")
    set(CPACK_DEBIAN_SOFTKEY_PACKAGE_RECOMMENDS "pinentry-curses | pinentry")
    set(CPACK_DEBIAN_SOFTKEY_PACKAGE_SUGGESTS "openssl")
endif()

set(CPACK_GENERATOR DEB)
# What cpack takes for unset: each package has a summary of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_NAME} built using CMake")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGE_NAME kesta-unified-zrkukey)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_VENDOR "Kesta")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_RELEASE "${revision}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Kesta developers <developers@kesta.example.org>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Older dpkg cannot read what is newer.
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64)$")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()
include(CPack)
