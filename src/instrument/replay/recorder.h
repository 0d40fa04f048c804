// Records what an instrument shows.
#pragma once

#include <string>

#include "korvane/embedded_parts.h"
#include "korvane/instrument.h"
#include "platform/files.h"

namespace korvane {

/// Takes the next `count` spectra and writes them to `path` as mzML, one after the other, with flight times,
/// calibration, setpoints and the options of the embedded peak finder, so that a replay measures the same peaks. The
/// file is made before the first spectrum is taken. Spectra that come empty are asked for again. Error 5 for a count
/// below 1, 91 without instrument control; -904 from "RecordingWriter", naming the file, when ten spectra in a row are
/// empty, when its metadata do not tell the polarity and when the file cannot be written; -904 from "RecordingReader"
/// for a spectrum that a replay would refuse; what `progress` raises. An old file then stays as it was. `taken` is
/// written in the place of those that the instrument would show.
void record_spectra(InstrumentLayer& instrument, const std::string& path, int count, Files& files, Clock& clock,
                    const RecordingProgress& progress = {}, const AcquiredSpectrum* taken = nullptr);

}  // namespace korvane
