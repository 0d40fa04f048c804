// What several commands read from the instrument and print of it: masses, logs, peaks.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "korvane/records.h"
#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "korvane/verdict.h"
#include "session.h"

namespace korvane::program {

/// The given masses, or the default list for the instrument's source and polarity. A given mass outside the
/// instrument's mass range is a usage error.
std::vector<double> chosen_masses(Session& session, TuneGlobals& globals, const std::vector<double>& given);
void require_mass_in_range(TuneGlobals& globals, double mass);

/// Path of the tune log that the measurement wrote, or that there is none.
std::string written_log(const SpectrumParser& parser);
/// What a command that writes a tune log ends with: all done, or the code of the session's fault, which may be that the
/// log was not written.
ExitCode log_and_end(Session& session, const SpectrumParser& parser);

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
