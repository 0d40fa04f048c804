// Everything outside the process's arithmetic, in one value that the classes take at construction.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "korvane/export.h"
#include "korvane/instrument.h"

namespace korvane {

class Files;
class Clock;
class MessageBox;
class TracerFactory;

struct KORVANE_API Platform {
    std::shared_ptr<InstrumentLayer> instrument;
    std::shared_ptr<Files> files;
    std::shared_ptr<Clock> clock;
    std::shared_ptr<MessageBox> message_box;
    std::shared_ptr<TracerFactory> tracers;

    /// The process's own platform: the instrument that the environment variable KORVANE_INSTRUMENT names, else the
    /// embedded one on the base folder named by KORVANE_BASE, else on the per-user folder, which is made on first use.
    /// Built once, at the first call.
    static const Platform& process_default();
};

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
};

/// Errors: -904 naming a file or folder that cannot be read or is not what it should be.
KORVANE_API Platform make_embedded_platform(const EmbeddedOptions& options);

/// A platform with a given instrument layer and the process's own files, clock, message box and file tracer.
KORVANE_API Platform make_platform(std::shared_ptr<InstrumentLayer> instrument);

/// A platform with the instrument layer of a shared library (a name with a path, or a library's ending). The base folder
/// is the one that the layer names. Errors: -904 naming a library that cannot be loaded or was built for another
/// interface version; 429 naming what is no library.
KORVANE_API Platform make_outside_platform(const std::string& instrument);

/// What the environment variable KORVANE_INSTRUMENT names, where it is set and not empty.
KORVANE_API std::optional<std::string> default_instrument();

/// The base folder a program uses when none is given: KORVANE_BASE, else the per-user folder.
KORVANE_API std::filesystem::path default_base_folder();

/// Writes a complete base folder. Error -904 naming the folder when it exists and is not an empty folder.
KORVANE_API void create_base_folder(const std::filesystem::path& folder);

}  // namespace korvane
