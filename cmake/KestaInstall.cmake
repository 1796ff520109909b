# What `cmake --install` and the packages lay down, by component:
#   runtime      the library
#   development  headers, CMake package, pkg-config file, man pages, task pages, examples
#   tools        the ukey command
#   softkey      software key, its admin command, the sandbox
# Included last, when every target is known.
include(CMakePackageConfigHelpers)

set(package kesta_unified_zrkukey)
set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/${package}")

add_library(kesta::${package} ALIAS ${package})
set_target_properties(event_import PROPERTIES EXPORT_NAME event_library)
install(TARGETS ${package} EXPORT ${package}
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime)
# The linker follows the library's own needs. Where the maker's files are not installed it finds the
# event library's names here; nothing loads it from a folder that no loader looks into.
install(TARGETS event_import EXPORT ${package}
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/${package}" COMPONENT development)

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        COMPONENT development)
install(EXPORT ${package} NAMESPACE kesta:: FILE ${package}-targets.cmake
        DESTINATION "${package_folder}" COMPONENT development)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/${package}-config-version.cmake"
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_SOURCE_DIR}/cmake/${package}-config.cmake"
              "${PROJECT_BINARY_DIR}/${package}-config-version.cmake"
        DESTINATION "${package_folder}" COMPONENT development)

# The prefix is told relative to the file, so that an installation can be moved.
set(pkgconfig_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH up_to_prefix "/prefix/${pkgconfig_folder}" "/prefix")
configure_file("${PROJECT_SOURCE_DIR}/cmake/${package}.pc.in"
               "${PROJECT_BINARY_DIR}/${package}.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/${package}.pc" DESTINATION "${pkgconfig_folder}"
        COMPONENT development)

set(document_folder "${CMAKE_INSTALL_DATAROOTDIR}/doc")
file(GLOB example_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/examples/*.c"
     "${PROJECT_SOURCE_DIR}/examples/*.py" "${PROJECT_SOURCE_DIR}/examples/*.js"
     "${PROJECT_SOURCE_DIR}/examples/*.cpp")
set(development_documents "${document_folder}/libkesta-unified-zrkukey-dev")
install(FILES ${example_sources} DESTINATION "${development_documents}/examples" COMPONENT development)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples/ci" DESTINATION "${development_documents}/examples"
        USE_SOURCE_PERMISSIONS COMPONENT development)
# The task pages, laid out so that their links lead to the examples and to one another; the README
# is one for readers who have the packages and not the source tree.
file(GLOB pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/*.md")
install(FILES ${pages} DESTINATION "${development_documents}/docs" COMPONENT development)
file(GLOB chinese_pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/zh/*.md")
install(FILES ${chinese_pages} DESTINATION "${development_documents}/docs/zh" COMPONENT development)
install(FILES "${PROJECT_SOURCE_DIR}/packaging/debian/README.dev" RENAME README.md
        DESTINATION "${development_documents}" COMPONENT development)
install(FILES "${PROJECT_SOURCE_DIR}/packaging/debian/README.dev.zh" RENAME README.zh.md
        DESTINATION "${development_documents}" COMPONENT development)
install(FILES "${PROJECT_SOURCE_DIR}/SECURITY.md" DESTINATION "${development_documents}" COMPONENT development)
install(FILES "${PROJECT_SOURCE_DIR}/bindings/codes.json" "${PROJECT_SOURCE_DIR}/bindings/softkey-codes.json"
        DESTINATION "${development_documents}/bindings" COMPONENT development)
foreach(page IN ITEMS RELEASING.md floor/README.md releases/README.md)
    get_filename_component(folder "packaging/${page}" DIRECTORY)
    install(FILES "${PROJECT_SOURCE_DIR}/packaging/${page}"
            DESTINATION "${development_documents}/${folder}" COMPONENT development)
endforeach()
file(RELATIVE_PATH to_include "${CMAKE_INSTALL_FULL_DATAROOTDIR}/doc/name" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
install(CODE "file(CREATE_LINK \"${to_include}\"
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${development_documents}/include\" SYMBOLIC)"
        COMPONENT development)

add_custom_target(kesta_tool_files)

# Man page and completions of a command, which it makes from its own definitions.
function(kesta_install_command_texts name target component)
    set(folder "${PROJECT_BINARY_DIR}/tool-files/${name}")
    set(share "${CMAKE_INSTALL_DATAROOTDIR}")
    set(texts "")
    # What the command is asked for, the file's name, and where it belongs.
    foreach(text IN ITEMS "manual:${name}.1:${CMAKE_INSTALL_MANDIR}/man1"
                          "completion bash:${name}:${share}/bash-completion/completions"
                          "completion zsh:_${name}:${share}/zsh/vendor-completions"
                          "completion fish:${name}.fish:${share}/fish/vendor_completions.d")
        string(REPLACE ":" ";" text "${text}")
        list(GET text 0 words)
        list(GET text 1 file)
        list(GET text 2 destination)
        separate_arguments(words)
        add_custom_command(
            OUTPUT "${folder}/${file}"
            COMMAND "${CMAKE_COMMAND}" -E make_directory "${folder}"
            COMMAND sh -c "exec \"$@\" >\"$0\"" "${folder}/${file}"
                    "${CMAKE_COMMAND}" -E env --unset=LANGUAGE LC_ALL=C
                    ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${target}> ${words}
            DEPENDS ${target}
            VERBATIM)
        list(APPEND texts "${folder}/${file}")
        install(FILES "${folder}/${file}" DESTINATION "${destination}" COMPONENT ${component})
    endforeach()
    install(FILES "${PROJECT_SOURCE_DIR}/docs/man/zh_CN/${name}.1"
            DESTINATION "${CMAKE_INSTALL_MANDIR}/zh_CN/man1" COMPONENT ${component})
    add_custom_target(${name}_texts ALL DEPENDS ${texts})
    add_dependencies(kesta_tool_files ${name}_texts)
endfunction()

# The commands' sentences in other languages, once for both: whoever has the one package has the other.
if(TARGET catalogues)
    set(catalogue_component softkey)
    if(TARGET ukey)
        set(catalogue_component tools)
    endif()
    install(DIRECTORY "${PROJECT_BINARY_DIR}/share/locale/" DESTINATION "${CMAKE_INSTALL_LOCALEDIR}"
            COMPONENT ${catalogue_component})
endif()

option(KESTA_PACKAGES "Prepare Debian packages for cpack" OFF)
if(KESTA_BUILD_TOOLS AND TARGET ukey)
    # Below any prefix the command finds the library that it was installed with. Packages put that
    # into the system's folder, where the loader looks by itself.
    if(NOT KESTA_PACKAGES)
        file(RELATIVE_PATH to_library "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
        set_target_properties(ukey PROPERTIES INSTALL_RPATH "\$ORIGIN/${to_library}")
    endif()
    install(TARGETS ukey RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
    kesta_install_command_texts(ukey ukey tools)
    # For fleets: off until somebody enables the timer.
    set(fleet "${PROJECT_SOURCE_DIR}/packaging/fleet")
    install(FILES "${fleet}/kesta-ukey-metrics.service" "${fleet}/kesta-ukey-metrics.timer"
            DESTINATION lib/systemd/system COMPONENT tools)
    install(FILES "${fleet}/kesta-ukey.rules.yml" DESTINATION "${document_folder}/kesta-ukey/examples"
            COMPONENT tools)
    install(PROGRAMS "${PROJECT_SOURCE_DIR}/tools/ukey-sandbox"
            DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT softkey)
endif()

# Never at the maker's install directory: the sandbox shows the software key there to one client.
if(KESTA_BUILD_SOFTKEY AND TARGET softkey_command)
    install(TARGETS softkey_token softkey_events LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/kesta-softkey" COMPONENT softkey)
    install(TARGETS softkey_command RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT softkey)
    kesta_install_command_texts(softkey softkey_command softkey)
    install(FILES "${PROJECT_SOURCE_DIR}/docs/man/ukey-sandbox.1"
            DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT softkey)
    install(FILES "${PROJECT_SOURCE_DIR}/docs/man/zh_CN/ukey-sandbox.1"
            DESTINATION "${CMAKE_INSTALL_MANDIR}/zh_CN/man1" COMPONENT softkey)
    install(PROGRAMS "${PROJECT_SOURCE_DIR}/packaging/softkey-demo" RENAME demo COMPONENT softkey
            DESTINATION "${document_folder}/kesta-softkey/examples")
    foreach(language IN ITEMS "" /zh)
        install(FILES "${PROJECT_SOURCE_DIR}/docs${language}/softkey.md"
                      "${PROJECT_SOURCE_DIR}/docs${language}/softkey-entry-points.md"
                      "${PROJECT_SOURCE_DIR}/docs${language}/misbehaviour.md"
                DESTINATION "${document_folder}/kesta-softkey${language}" COMPONENT softkey)
    endforeach()
endif()

if(KESTA_PACKAGES)
    include(KestaPackages)
endif()
