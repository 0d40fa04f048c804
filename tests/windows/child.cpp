// For a test that ends a process: writes the preference Mode in the base folder given, "odd" and "even" in turn, until
// it is ended.
#include "korvane/korvane.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    korvane::clsTunePrefsXML store(korvane::make_embedded_platform({.base_folder = argv[1]}));
    for (int save = 0;; ++save) store.WriteTunePreference("Mode", save % 2 ? "even" : "odd");
}
