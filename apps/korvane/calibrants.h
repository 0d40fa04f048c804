// What several commands read from the instrument, and words about it.
#pragma once

#include <string>
#include <vector>

#include "korvane/records.h"
#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "session.h"

namespace korvane::program {

/// The given masses, or the default list for the instrument's source and polarity. A given mass outside the
/// instrument's mass range is a usage error.
std::vector<double> chosen_masses(Session& session, TuneGlobals& globals, const std::vector<double>& given);
void require_mass_in_range(TuneGlobals& globals, double mass);

/// The mass list name of the source that the instrument is set to.
std::string current_mass_list_source(Session& session, TuneGlobals& globals);

/// Path of the tune log that the measurement wrote, or that there is none.
std::string written_log(const SpectrumParser& parser);
/// What a command that writes a tune log ends with: all done, or the code of the session's fault, which may be that the
/// log was not written.
ExitCode log_and_end(Session& session, const SpectrumParser& parser);

}  // namespace korvane::program
