// Makes a maker's library depend on another one.
extern "C" int fixture_helper();
extern "C" __attribute__((visibility("default"))) int fixture_needs_helper() {
    return fixture_helper();
}
