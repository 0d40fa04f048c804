// The history of an instrument's tunes: records kept in a file of the base folder or on a server, and read again.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "korvane/platform.h"
#include "korvane/tune_record.h"

namespace korvane {

/// A record as one JSON object (schema 1), and back. What is not finite becomes null, and null NaN; what the text lacks
/// stays as in a new record. Error -904, of the kind `configuration`, naming the value that is not of its type, or a
/// schema that is newer than this library.
KORVANE_API std::string tune_record_json(const TuneRecord& record);
KORVANE_API TuneRecord tune_record_from_json(std::string_view json);

/// A record of a run that is about to begin: time, source, polarity, the title of the instrument as its serial, all
/// setpoints and the calibration, after as before. Errors as `TuneGlobals` has them.
KORVANE_API TuneRecord begin_record(const Platform& platform, std::string kind);
/// Reads setpoints and calibration again, as those after the run.
KORVANE_API void end_record(TuneRecord& record, const Platform& platform);
/// A mark of the history, such as "maintenance", for the instrument of `like`.
KORVANE_API TuneRecord make_mark(const Platform& platform, const TuneRecord& like, const std::string& word,
                                 const std::string& text);
/// The calibrants with their verdicts by the limits, and the verdict of all: "ok", or what is wrong with which.
KORVANE_API void judge(TuneRecord& record, const std::vector<MeasuredCalibrant>& measured, const TuneLimits& limits);

}  // namespace korvane
