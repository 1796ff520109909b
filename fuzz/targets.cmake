# The fuzz targets, for ./fuzz, for ./prove and for the tests that run each over its seeds.
set(kesta_fuzz_library_targets request_info bundle replace strings conversion face_checks)
set(kesta_fuzz_softkey_targets certificate envelope cipher recipient plan assuan base64 digest)
