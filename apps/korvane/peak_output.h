// Peaks as the commands print them: the record by its names, and in words what is known about a peak besides.
#pragma once

#include <optional>
#include <string>

#include "korvane/records.h"
#include "korvane/verdict.h"
#include "session.h"

namespace korvane::program {

/// The eight values by name.
Json peak_json(const PeakInfo& record);

/// "clipped", "overlapped", "few ions", "misfit 1.8", with commas between; "ok" where none holds, "-" where the peak
/// finder does not tell.
std::string quality_text(const std::optional<PeakQuality>& quality);
/// The same by name; null where the peak finder does not tell.
Json quality_json(const std::optional<PeakQuality>& quality);

/// State, the number that decided and its limit (null where none did), and the text.
Json verdict_json(const CalibrantVerdict& verdict);

}  // namespace korvane::program
