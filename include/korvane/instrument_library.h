// For makers of an instrument layer: how a shared library offers one. docs/instrument-layer.md tells the whole.
#pragma once

#include <cstdint>

#include "korvane/instrument.h"

namespace korvane {

/// Grows with every change of the layer's interfaces and records (instrument.h, mass_time.h, peak_finder.h, records.h,
/// error.h).
inline constexpr std::int32_t instrument_interface_version = 2;

/// What the library's entry point returns. The first member keeps its place in every version.
struct InstrumentLibrary {
    /// The version of the headers that the library was built with. Any other than the host's is refused.
    std::int32_t interface_version = instrument_interface_version;
    /// Makes the layer; `Error` is passed on to the caller. May not return null.
    InstrumentLayer* (*create)() = nullptr;
    /// Takes a layer back that `create` made.
    void (*destroy)(InstrumentLayer*) = nullptr;
};

/// Name of the entry point: extern "C" const korvane::InstrumentLibrary* korvane_instrument_library().
inline constexpr const char* instrument_library_entry = "korvane_instrument_library";

}  // namespace korvane

#if defined(_WIN32)
#define KORVANE_INSTRUMENT_EXPORT __declspec(dllexport)
#else
#define KORVANE_INSTRUMENT_EXPORT __attribute__((visibility("default")))
#endif

/// Defines the entry point for a layer class with a default constructor. To be written once, outside any namespace.
#define KORVANE_INSTRUMENT_LIBRARY(Layer)                                                                        \
    extern "C" KORVANE_INSTRUMENT_EXPORT const korvane::InstrumentLibrary* korvane_instrument_library() {        \
        static const korvane::InstrumentLibrary library{korvane::instrument_interface_version,                   \
                                                        []() -> korvane::InstrumentLayer* { return new Layer; }, \
                                                        [](korvane::InstrumentLayer* layer) { delete layer; }};  \
        return &library;                                                                                         \
    }
