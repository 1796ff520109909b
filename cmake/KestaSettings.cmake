# Settings that every part shares: language level, warnings, hardening, sanitizers, where files go.

# The library's RUNPATH.
set(places "${CMAKE_CURRENT_SOURCE_DIR}/include/kesta/places.h")
file(STRINGS "${places}" KESTA_INSTALL_DIRECTORY REGEX "^#define KESTA_INSTALL_DIRECTORY ")
string(REGEX REPLACE "^[^\"]*\"(.+)\"$" "\\1" KESTA_INSTALL_DIRECTORY "${KESTA_INSTALL_DIRECTORY}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${places}")

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(CMAKE_BUILD_TYPE STREQUAL "Release")
    # The same source gives the same bytes wherever it lies.
    add_compile_options("-ffile-prefix-map=${PROJECT_BINARY_DIR}=build"
                        "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.")
endif()

set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

# Where these run, intercept_tls_get_addr=0 is among their options: a block of thread-local memory that
# lies 16 bytes behind a page's beginning is taken for one of an earlier C library, and what stands
# before it for its place and size.
set(KESTA_SANITIZE "" CACHE STRING "Sanitizers: empty, 'address' (with undefined) or 'thread'")
if(KESTA_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(KESTA_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(KESTA_SANITIZE)
    message(FATAL_ERROR "KESTA_SANITIZE is '${KESTA_SANITIZE}'; it takes 'address' or 'thread'")
endif()
if(KESTA_SANITIZE)
    add_compile_definitions(KESTA_SANITIZED KESTA_$<UPPER_CASE:${KESTA_SANITIZE}>_SANITIZED)
endif()

# Warnings for everything that is written here.
add_library(kesta_warnings INTERFACE)
target_compile_options(kesta_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)

# Hardening of what ships. Sanitizers bring their own checks of the libc calls.
add_library(kesta_hardening INTERFACE)
target_compile_options(kesta_hardening INTERFACE -fstack-protector-strong)
if(NOT KESTA_SANITIZE)
    target_compile_options(kesta_hardening INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    target_compile_options(kesta_hardening INTERFACE -mbranch-protection=standard
        # The helpers that would pick the atomic instructions carry no marks for it.
        -mno-outline-atomics)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64)$")
    target_compile_options(kesta_hardening INTERFACE -fcf-protection=full)
endif()
target_link_options(kesta_hardening INTERFACE
    -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,separate-code)
