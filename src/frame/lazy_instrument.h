// The instrument of one object: made and initialised at the first use, so that the object itself can be made without.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "frame/checked_layer.h"
#include "korvane/error.h"
#include "korvane/instrument.h"

namespace korvane {

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
