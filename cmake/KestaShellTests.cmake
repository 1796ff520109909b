# Tests that are written as shell functions: each function test_CLAIM of a script becomes the test
# PREFIX.CLAIM. The script sources tests/support/claims.bash and ends in `run_claims "$@"`.
function(kesta_add_shell_tests prefix script)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "TIMEOUT" "ENVIRONMENT;LABELS")
    get_filename_component(script "${script}" ABSOLUTE)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${script}")
    file(STRINGS "${script}" functions REGEX "^test_[A-Za-z0-9_]+ *\\(\\)")
    if(NOT functions)
        message(FATAL_ERROR "${script} holds no function test_CLAIM")
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)  # a test that hangs
    endif()
    foreach(function IN LISTS functions)
        string(REGEX REPLACE "^test_([A-Za-z0-9_]+).*" "\\1" claim "${function}")
        add_test(NAME "${prefix}.${claim}" COMMAND "${script}" "${claim}")
        set_tests_properties("${prefix}.${claim}" PROPERTIES
            ENVIRONMENT "${arg_ENVIRONMENT}" LABELS "${arg_LABELS}" TIMEOUT ${arg_TIMEOUT})
    endforeach()
endfunction()
