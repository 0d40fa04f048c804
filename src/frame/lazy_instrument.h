// How an object reaches its instrument: behind checks of what the layer hands out, the one place where a layer's
// misbehaviour becomes an error; made and initialised at the first use, so that the object itself can be made without.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "korvane/error.h"
#include "korvane/instrument.h"
#include "korvane/platform.h"

namespace korvane {

/// The platform with its layer behind checks: a factory that makes nothing is error 91, a spectrum whose arrays do not
/// fit together or whose mass axis does not ascend is error -1, both naming the call; and every call is noted, so that
/// an exception that is no `Error` gets the name of the call it came out of. What the layer lends to callers of the
/// library (calibrations, peak lists) is handed on as it is.
std::shared_ptr<InstrumentLayer> checked(std::shared_ptr<InstrumentLayer> layer);
Platform checked(Platform platform);

/// Member of the instrument called last on this thread; null before the first.
const char* last_instrument_call() noexcept;
void note_instrument_call(const char* member) noexcept;

/// Error -1 unless an array that `member` gave has so many elements.
void require_size(const char* member, std::size_t given, std::size_t expected);

/// The layer's globals, once made and initialised. A failure to do so is kept: every use raises it. Error 91 where the
/// layer makes none. Used from one thread at a time, as the object it belongs to.
class LazyInstrument {
public:
    explicit LazyInstrument(std::shared_ptr<InstrumentLayer> layer) : layer_(checked(std::move(layer))) {}

    InstrumentGlobals& operator*() const {
        if (!globals_) make();
        return *globals_;
    }
    InstrumentGlobals* operator->() const { return &**this; }
    /// Error 91 where no instrument control is connected.
    InstrumentControl& control() const {
        InstrumentControl* const connected = (**this).control();
        if (!connected) raise_runtime_fault(error_number::object_not_set, "instrument control");
        return *connected;
    }

private:
    void make() const;

    std::shared_ptr<InstrumentLayer> layer_;
    mutable std::unique_ptr<InstrumentGlobals> globals_;
    mutable std::optional<Error> failure_;
};

/// The base folder that the layer names, without a separator at its end; error 91 where it has no path information.
std::string base_folder(InstrumentLayer& layer);

}  // namespace korvane
