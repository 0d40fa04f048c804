// What every routine of a spectrum parser works with.
#pragma once

#include "frame/lazy_instrument.h"
#include "frame/routine.h"
#include "globals/current_setpoints.h"
#include "korvane/abort_helper.h"
#include "korvane/platform.h"
#include "korvane/tune_globals.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"

namespace korvane {

/// The objects are made in the order of the members.
struct Session {
    explicit Session(const Platform& world);

    Segments current_segments() const { return {tune.CurrentTimeSegment(), tune.CurrentScanSegment()}; }
    /// Error 91 where no instrument control is connected.
    InstrumentControl& control() const;
    /// What the instrument lends for the polarity that it is set to; error 91 when that is nothing.
    CalibrationObject calibration_of_current_polarity() const;
    /// A limit from the loaded copy of the tune parameter file.
    double limit(const char* group, const char* name) { return params.GetAutotuneLimitValue(group, name); }
    /// Error 1 "User aborted" when the user asked for it.
    void raise_if_aborted();
    void log(const std::string& line) { tune.WriteLineToTuneLogFile(line); }

    const Platform platform;
    const Trace trace;
    const LazyInstrument instrument;
    TuneGlobals tune;
    clsTuneParamsXML params;
    clsTunePrefsXML prefs;
    AbortHelper abort;
};

/// Reaction of routines whose line is "name.Error[number]" and says no more.
inline constexpr auto number_line = [](TraceObj& record, RoutineName name, const Error& error) {
    record.error_line(name.name, ".Error[", error.number(), "]");
};

/// "value" / "divisor"; error 11 when the divisor is 0.
double checked_quotient(double value, double divisor);
/// Nearest single-precision number; error 6 where there is none.
float to_single(double value);

}  // namespace korvane
