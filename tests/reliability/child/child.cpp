// For tests of two processes, until it is ended: writes the preference Mode in the base folder given, "odd" and "even"
// in turn, or with a further word triggers an abort whenever none stands.
#include "korvane/korvane.h"

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const korvane::Platform platform = korvane::make_embedded_platform({.base_folder = argv[1]});
    korvane::clsTunePrefsXML store(platform);
    korvane::AbortHelper helper(platform);
    for (int turn = 0;; ++turn) {
        if (argc == 2) store.WriteTunePreference("Mode", turn % 2 ? "even" : "odd");
        if (argc > 2 && !helper.UserHasClickedAbort()) helper.TriggerAbort();
    }
}
