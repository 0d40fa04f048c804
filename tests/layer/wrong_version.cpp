// A library that was built for another version of the interface: nothing but the version may be looked at.
#include "korvane/instrument_library.h"

extern "C" KORVANE_INSTRUMENT_EXPORT const korvane::InstrumentLibrary* korvane_instrument_library() {
    static const korvane::InstrumentLibrary library{999, nullptr, nullptr};
    return &library;
}
