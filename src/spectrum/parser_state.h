// The private state of a spectrum parser, and the private routines that several of its topics use.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "frame/routine.h"
#include "globals/current_setpoints.h"
#include "globals/log_file.h"
#include "korvane/abort_helper.h"
#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "spectrum/search_copy.h"

namespace korvane {

/// Sample position of a window's edge: as the bisection gives it, -1 where it finds none, and as it is searched.
struct WindowEdge {
    double index = 0;
    std::int32_t searched = 0;
};

struct IndexRange {
    WindowEdge start, end;
};

/// The objects are made in the order of the members. Routines that build on public members are given the parser.
struct SpectrumParser::Impl {
    explicit Impl(const Platform& world) : platform(checked(world)) {}

    /// The setpoint table for the segments current now.
    CurrentSetpoints current();
    /// A limit from the loaded copy of the tune parameter file.
    double limit(const char* group, const char* name) { return params.GetAutotuneLimitValue(group, name); }
    /// Error 1 "User aborted" when the user asked for it.
    void raise_if_aborted();
    /// Writes the pieces put together, as one line, to the tune log.
    template <class... Pieces>
    void log(const Pieces&... pieces) {
        log_line.clear();
        append_text(log_line, pieces...);
        tune.WriteLineToTuneLogFile(log_line = one_line(std::move(log_line)));
    }

    /// False when none came within 45 s.
    bool WaitForSpectrumWithProperPolarityAndExperimentIndex(SpectrumParser& parser, AcquiredSpectrum& spectrum);
    /// Height of the most abundant peak in the window of one mass; 0 without a peak.
    double GetPeakAbForThisMass(SpectrumParser& parser, double mass);
    // Of the abundance search.
    /// Not ready is a negative not-ready state, as a 16-bit integer.
    bool CheckInstrumentReadyState();
    /// Mean over so many fresh spectra, halves to even. Error 11 for 0 of them; 0 for fewer.
    std::int32_t GetAveragedPeakAbundance(SpectrumParser& parser, double mz, std::int32_t spectra);

    const Platform platform;
    const Trace trace{platform.tracers};
    const LazyInstrument instrument{platform.instrument};
    TuneGlobals tune{platform};
    clsTuneParamsXML params{platform};
    clsTunePrefsXML prefs{platform};
    AbortHelper abort{platform};

    Segments segments;            // those of the last call of `current`
    std::string log_line;         // kept for its memory
    META_INDEX metadata_entries;  // a description that lacks an entry leaves its position alone
    std::vector<IndexRange> windows;
    SearchCopy searched;
    std::optional<PeakUncertainty> taken_uncertainty;  // of the peak that FindPeakForMass took last, in ns
    std::optional<PeakQuality> taken_quality;
    std::vector<std::optional<PeakUncertainty>> uncertainties;
    std::vector<std::optional<PeakQuality>> qualities;

    std::function<void(const AdjustProbe&)> on_adjust_probe;
    std::optional<bool> fast_choice;
    AdjustOutcome adjustment;
    LogFile search_log{platform};
    std::optional<bool> search_log_is_on;  // once the search has read the preference
};

using ParserState = SpectrumParser::Impl;

/// Reaction of a routine whose error line is "name.Error[number]".
inline void numbered_line(TraceObj& record, RoutineName name, const Error& error) {
    record.error_line(name.name, ".Error[", error.number(), "]");
}

inline constexpr std::int32_t most_abundant_first = 0;

inline constexpr std::string_view no_peaks_description = "No peaks returned by peakfinder";
/// The one measuring error that callers may take for an answer.
inline bool means_no_peaks(const Error& error) {
    return error.description() == no_peaks_description;
}

/// Nearest single-precision number; error 6 where there is none.
float to_single(double value);

}  // namespace korvane
