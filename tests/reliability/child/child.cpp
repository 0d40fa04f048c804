// For tests of several processes. BASE: writes the preference Mode there, "odd" and "even" in turn, until it is ended.
// BASE NAME COUNT: writes the preference NAME so often, and ends with 1 where one is not read back.
#include "reliability/patient_platform.h"

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const korvane::Platform platform = korvane::make_embedded_platform({.base_folder = argv[1]});
    korvane::clsTunePrefsXML mode(platform);
    for (int turn = 0; argc < 4; ++turn) mode.WriteTunePreference("Mode", turn % 2 ? "even" : "odd");
    korvane::clsTunePrefsXML store(korvane::patient_platform(argv[1]));
    for (int write = std::atoi(argv[3]); write > 0; --write) {
        store.WriteTunePreference(argv[2], std::to_string(write));
        if (store.GetTunePreference(argv[2], true) != std::to_string(write)) return 1;
    }
    return 0;
}
