// The instrument layer of the embedded instrument.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "instrument/embedded/instrument.h"
#include "platform/files.h"

namespace korvane::embedded {

/// Makes the instrument out of its files.
using InstrumentMaker = std::function<std::shared_ptr<Instrument>()>;

/// The layer of an instrument that is made when it is first needed, by a globals object or a peak finder: an error of
/// `make` is raised there, and the next one tries again. Base folder and logbook do without it. The globals objects
/// keep the instrument alive. `name` is the source of the logbook's errors; paths are UTF-8.
std::shared_ptr<InstrumentLayer> make_layer(std::string name, std::string base_folder, std::shared_ptr<Files> files,
                                            std::shared_ptr<Clock> clock, InstrumentMaker make);

}  // namespace korvane::embedded
