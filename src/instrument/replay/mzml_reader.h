// Reads recordings: the profile spectra of an mzML file.
#pragma once

#include <string>

#include "instrument/replay/recording.h"
#include "korvane/embedded_parts.h"
#include "platform/files.h"

namespace korvane::replay {

/// Reads mzML 1.1, with or without the index around it, packed by gzip or not. What the file does not say is found out
/// or assumed, and stands in the notes: the MS level, the polarity, whether a spectrum is a profile (by its spacing),
/// start times, the sampling frequency. Spectra of other levels, centroids and empty spectra are passed over.
///
/// Error -904 from "RecordingReader", naming the file, the spectrum and the item, for: a file that cannot be read, is a
/// folder, empty, not XML or not mzML; no profile spectrum of the level; both polarities in one spectrum; arrays
/// missing, damaged, of another length than the spectrum or encoded in an unknown way; m/z that do not ascend from
/// above 0; numbers that are not finite; more samples than `recording.h` allows.
Recording read_recording(Files& files, const std::string& file, const RecordingOptions& options = {});
/// The same of a file's content.
Recording parse_recording(std::string bytes, const std::string& file, const RecordingOptions& options);
/// What the file holds, unpacked.
std::string recording_bytes(Files& files, const std::string& file);

}  // namespace korvane::replay
