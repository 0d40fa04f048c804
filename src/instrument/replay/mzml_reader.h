// Reads recordings: the profile spectra of MS level 1 of an mzML file.
#pragma once

#include <string>

#include "instrument/replay/recording.h"
#include "platform/files.h"

namespace korvane::replay {

/// Reads mzML 1.1, with or without the index around it. Spectra of other MS levels are left out. Error -904 from
/// "RecordingReader", naming the file, the spectrum and the item, for: a file that cannot be read, is a folder, empty,
/// not XML or not mzML; no spectrum of level 1; a spectrum without samples, level or polarity, or that is not a
/// profile; arrays missing, damaged, of the wrong length, or encoded in a way other than 32- or 64-bit floats with zlib
/// or no compression; m/z that do not ascend from above 0; numbers that are not finite; more samples than `recording.h`
/// allows. A scan without start time counts as started at 0, a file without ionisation as ESI.
Recording read_recording(Files& files, const std::string& file);

}  // namespace korvane::replay
