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
          instrument(platform.instrument),
          preferences(platform),
          parameters(platform),
          abort(platform) {
        if (is_base_folder_known()) logs.read_log_setpoint_traffic();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    bool is_base_folder_known() const {
        try {
            return !base_folder(*platform.instrument).empty();
        } catch (...) {
            return false;  // A missing instrument is no reason to fail here.
        }
    }

    const Platform platform;
    const LazyInstrument instrument;
    clsTunePrefsXML preferences;
    clsTuneParamsXML parameters;
    AbortHelper abort;

    Segments segments;
    double abundance_reduction_vcap = 0;
    double abundance_reduction_fragmentor = 0;

    std::string error_message;
    const Trace trace{platform.tracers, &error_message};
    const CurrentSetpoints current{instrument, segments};
    SetpointAccess setpoints{trace, instrument, current, abort, *platform.clock};
    TuneLogs logs{trace, instrument, preferences, platform};
    MassCalibration calibration{trace, instrument, current, preferences, parameters};
    SourceAndPolarity source{trace, instrument, current, parameters};
    MassRange mass_range{trace, instrument, current, platform};
    IndexedSlicer slicer{trace, instrument, setpoints, preferences, parameters, logs};
    DetectorDefaults detector{trace, instrument, current, parameters, source, calibration, mass_range};
};

}  // namespace korvane
