// The instrument layer behind checks of what it hands out: the one place where a layer's misbehaviour becomes an error.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

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

}  // namespace korvane
