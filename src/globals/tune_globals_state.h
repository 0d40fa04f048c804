// What the tune globals are made of.
#pragma once

#include <memory>

#include "globals/detector_defaults.h"
#include "globals/indexed_slicer.h"
#include "globals/tune_logs.h"
#include "korvane/tune_globals.h"

namespace korvane {

struct TuneGlobals::Impl {
    explicit Impl(const Platform& given)
        : platform(given),
          instrument(initialised(platform.instrument->create_globals())),
          preferences(platform),
          parameters(platform),
          abort(platform),
          paths(platform.instrument->create_path_information()) {
        logs.set_log_setpoint_traffic(preferences.GetTunePreference("LogSetpointTraffic") == "Yes");
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    static std::unique_ptr<InstrumentGlobals> initialised(std::unique_ptr<InstrumentGlobals> globals) {
        globals->initialise();
        return globals;
    }

    const Platform platform;
    const std::unique_ptr<InstrumentGlobals> instrument;
    clsTunePrefsXML preferences;
    clsTuneParamsXML parameters;
    AbortHelper abort;
    const std::unique_ptr<PathInformation> paths;

    Segments segments;
    double abundance_reduction_vcap = 0;
    double abundance_reduction_fragmentor = 0;

    std::string error_message;
    const Trace trace{platform.tracers, &error_message};
    const CurrentSetpoints current{*instrument, segments};
    SetpointAccess setpoints{trace, *instrument, current, abort, *platform.clock};
    TuneLogs logs{trace, *instrument, platform};
    MassCalibration calibration{trace, *instrument, current, preferences, parameters};
    SourceAndPolarity source{trace, *instrument, current, parameters};
    MassRange mass_range{trace, *instrument, current, *paths, platform};
    IndexedSlicer slicer{trace, *instrument, setpoints, preferences, parameters, logs};
    DetectorDefaults detector{trace, *instrument, current, parameters, source, calibration, mass_range};
};

}  // namespace korvane
