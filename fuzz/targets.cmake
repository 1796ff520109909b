# The fuzz targets, for ./fuzz, for ./prove and for the tests that run each over its seeds.
set(kesta_fuzz_library_targets request_info bundle replace strings conversion face_checks log_arguments)
set(kesta_fuzz_calls_targets exports)
set(kesta_fuzz_tools_targets log_reader elf trace)
set(kesta_fuzz_softkey_targets certificate envelope cipher recipient plan assuan base64 digest damaged_state)
