# The oldest runtime that what ships must load on: the C library 2.28 and the C++ runtime of GCC 8.
#
# With KESTA_RUNTIME_FLOOR, targets given to kesta_serves_old_userlands are linked against import
# libraries of that runtime, made from the compiler's own. A symbol that came later cannot slip in:
# it is an error at link time. Without the option the function does nothing.

option(KESTA_RUNTIME_FLOOR "Make what ships load on glibc 2.28 with the C++ runtime of GCC 8" OFF)

if(KESTA_RUNTIME_FLOOR)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU" OR KESTA_SANITIZE)
        message(FATAL_ERROR "KESTA_RUNTIME_FLOOR takes GCC and no sanitizer")
    endif()
    # The same source gives the same bytes wherever it lies.
    add_compile_options("-ffile-prefix-map=${PROJECT_BINARY_DIR}=build"
                        "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.")
    set(floor_sources "${CMAKE_CURRENT_LIST_DIR}/floor")
    set(floor_libraries "${CMAKE_BINARY_DIR}/floor")

    add_library(kesta_floor_compat STATIC
        "${floor_sources}/compat.c" "${floor_sources}/single_threaded.c"
        "${floor_sources}/clock_wait.c" "${floor_sources}/heap_figures.c"
        "${floor_sources}/libstdcxx.cpp")
    add_library(kesta_floor_module OBJECT "${floor_sources}/module_end.c")
    add_library(kesta_floor_program OBJECT "${floor_sources}/program_start.c")
    foreach(part IN ITEMS compat module program)
        target_link_libraries(kesta_floor_${part} PRIVATE kesta_hardening)
        # The identifiers are the C library's own; that is the point.
        target_compile_options(kesta_floor_${part} PRIVATE -Wall -Wextra)
    endforeach()
    set_target_properties(kesta_floor_compat PROPERTIES
        ARCHIVE_OUTPUT_DIRECTORY "${floor_libraries}"
        OUTPUT_NAME kesta_floor)

    execute_process(
        COMMAND "${floor_sources}/make-stubs" "${floor_libraries}"
                "${floor_libraries}/libkesta_floor.a" "${CMAKE_CXX_COMPILER}"
        RESULT_VARIABLE floor_result)
    if(NOT floor_result EQUAL 0)
        message(FATAL_ERROR "the import libraries for KESTA_RUNTIME_FLOOR could not be made")
    endif()
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${floor_sources}/make-stubs")
endif()

# kesta_takes_openssl_along(): in the folder that calls it, OpenSSL::Crypto is the static library.
# The userlands that are served have an older OpenSSL, whose shared library has another name.
function(kesta_takes_openssl_along)
    if(NOT KESTA_RUNTIME_FLOOR)
        return()
    endif()
    get_target_property(shared OpenSSL::Crypto IMPORTED_LOCATION)
    string(REGEX REPLACE "\\.so$" ".a" static "${shared}")
    if(NOT EXISTS "${static}")
        message(FATAL_ERROR "KESTA_RUNTIME_FLOOR needs OpenSSL's static library, ${static}")
    endif()
    set_target_properties(OpenSSL::Crypto PROPERTIES IMPORTED_LOCATION "${static}")
endfunction()

# kesta_serves_old_userlands(TARGET): TARGET, a shared library or a program, loads on the floor.
function(kesta_serves_old_userlands target)
    if(NOT KESTA_RUNTIME_FLOOR)
        return()
    endif()
    get_target_property(type ${target} TYPE)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:kesta_floor_module>)
    if(type STREQUAL "EXECUTABLE")
        target_sources(${target} PRIVATE $<TARGET_OBJECTS:kesta_floor_program>)
    endif()
    # The second for what linked libraries need in turn.
    target_link_options(${target} PRIVATE -nostartfiles "-L${floor_libraries}"
                        "-Wl,-rpath-link,${floor_libraries}")
    add_dependencies(${target} kesta_floor_compat)
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${floor_libraries}/libc.so")
endfunction()

# kesta_folder_serves_old_userlands(FOLDER): so does each program and library of FOLDER.
function(kesta_folder_serves_old_userlands folder)
    get_property(targets DIRECTORY "${folder}" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(type ${target} TYPE)
        if(type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY)$")
            kesta_serves_old_userlands(${target})
        endif()
    endforeach()
endfunction()
