// A library that a maker's library depends on.
extern "C" __attribute__((visibility("default"))) int fixture_helper() {
    return 1;
}
