// A library that is no instrument layer.
extern "C" __attribute__((visibility("default"))) int something_else() {
    return 0;
}
