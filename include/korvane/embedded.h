// The embedded instrument, simulated or replayed, and the base folders it works on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "korvane/embedded_parts.h"
#include "korvane/platform.h"

namespace korvane {

/// How to build a platform with the embedded instrument.
struct EmbeddedOptions {
    /// Folder with TuneParams.xml, TunePreferences.xml, MassLists and Logfiles. Empty: the one named by KORVANE_BASE,
    /// else the per-user folder, which is made on first use.
    std::filesystem::path base_folder = {};
    std::uint64_t seed = 1;
    /// Scene of the simulator; without it "scene.json" of the base folder, or the default scene where there is none.
    std::optional<std::filesystem::path> scene = {};
    /// A recording (mzML) that takes the simulator's place.
    std::optional<std::filesystem::path> replay = {};
    RecordingOptions recording = {};
};

/// `system` with the embedded instrument, which waits by its clock and reads and writes by its files. Folder and
/// instrument are looked for at their first use: stores, mass list and abort flag work on the base folder whatever
/// becomes of the instrument. Errors there, and at every further use until they can be had: -904 naming a base folder
/// that does not exist or is no folder; of the instrument -904 naming a scene, state file or recording that cannot be
/// read or is not what it should be.
KORVANE_API Platform make_embedded_platform(const EmbeddedOptions& options, Platform system = make_platform(nullptr));

/// The base folder a program uses when none is given: KORVANE_BASE, else the per-user folder. Error -904 where the user
/// has no folder for data.
KORVANE_API std::filesystem::path default_base_folder();

/// Writes a complete base folder, whose numbers are written by the process's locale, as the stores read them. Error
/// -904 naming the folder when it exists and is not an empty folder.
KORVANE_API void create_base_folder(const std::filesystem::path& folder);

}  // namespace korvane
