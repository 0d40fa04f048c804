#include "assembly/outside_instrument.h"

#include "instrument/library/instrument_library.h"
#include "korvane/platform.h"
#include "platform/environment.h"

namespace korvane {

namespace {
constexpr std::int32_t cannot_create = 429;
}  // namespace

std::shared_ptr<InstrumentLayer> make_outside_instrument(const std::string& name) {
    if (names_library(name)) return load_instrument_library(name);
    raise_runtime_fault(cannot_create, name + " (neither a library file nor, on this system, an automation object)");
}

std::optional<std::string> default_instrument() {
    const std::string name = environment_text("KORVANE_INSTRUMENT");
    return name.empty() ? std::nullopt : std::optional(name);
}

}  // namespace korvane
