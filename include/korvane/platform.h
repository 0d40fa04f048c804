// Everything outside the process's arithmetic, in one value that the classes take at construction.
#pragma once

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

/// The state of a public class, of a type that only the library knows.
template <class State>
using PrivateState = std::unique_ptr<State, void (*)(State*)>;

/// None of the members may be null when a class takes it. A host program brings its own event loop, dialog or tracer by
/// putting it (`korvane/system.h`) in the place of what `make_platform` has put there.
struct KORVANE_API Platform {
    std::shared_ptr<InstrumentLayer> instrument;
    std::shared_ptr<Files> files;
    std::shared_ptr<Clock> clock;
    std::shared_ptr<MessageBox> message_box;
    std::shared_ptr<TracerFactory> tracers;

    /// The process's own platform: the instrument that the environment variable KORVANE_INSTRUMENT names, else the
    /// embedded one. Built once, at the first call, which never fails; what it lacks is told at the first use.
    static const Platform& process_default();
};

/// A platform with a given instrument layer and the process's own files, clock, message box and file tracer.
KORVANE_API Platform make_platform(std::shared_ptr<InstrumentLayer> instrument);

/// A platform with the instrument layer of a shared library (a name with a path, or a library's ending), loaded at its
/// first use. The base folder is the one that the layer names. Errors, at the first use and every further one until the
/// layer can be had: -904 naming a library that cannot be loaded or was built for another interface version; 429 naming
/// what is no library.
KORVANE_API Platform make_outside_platform(const std::string& instrument);

/// What the environment variable KORVANE_INSTRUMENT names, where it is set and not empty.
KORVANE_API std::optional<std::string> default_instrument();

}  // namespace korvane
