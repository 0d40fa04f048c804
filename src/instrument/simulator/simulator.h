// The embedded instrument: a simulated quadrupole time-of-flight mass spectrometer. docs/simulator.md describes it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "korvane/instrument.h"
#include "korvane/system.h"
#include "platform/files.h"

namespace korvane {

/// Paths are UTF-8.
struct SimulatorOptions {
    std::string base_folder;                ///< its Logfiles folder takes the logbook
    std::uint64_t seed = 1;                 ///< same seed, same spectra
    std::optional<std::string> scene_path;  ///< without it the default scene
    /// File that keeps setpoints, calibrations and slicer hours between programs, which may share it.
    std::optional<std::string> state_path;
};

/// Makes the layer at once; scene and state file are read when the instrument is first needed, which then raises
/// -904 naming the item and the file for one that cannot be read or is not one.
std::shared_ptr<InstrumentLayer> make_simulator(const SimulatorOptions& options, std::shared_ptr<Files> files,
                                                std::shared_ptr<Clock> clock);

}  // namespace korvane
