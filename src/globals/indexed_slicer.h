// The indexed slicer: positions of two resolutions that wear with running hours.
#pragma once

#include "globals/setpoint_access.h"
#include "globals/tune_logs.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"

namespace korvane {

class IndexedSlicer {
public:
    IndexedSlicer(const Trace& trace, const LazyInstrument& instrument, SetpointAccess& setpoints,
                  clsTunePrefsXML& preferences, clsTuneParamsXML& parameters, TuneLogs& logs)
        : trace_(trace),
          instrument_(instrument),
          setpoints_(setpoints),
          preferences_(preferences),
          parameters_(parameters),
          logs_(logs) {}

    bool is_high_resolution();
    /// Moves to the next position of the same resolution whose running hours are below the limit, and returns it; -1
    /// and no move where there is none.
    double seek_clean_position();

private:
    std::int32_t current_position();
    std::int32_t configured(const std::string& name);
    std::int32_t next_clean_position();
    void move_to(std::int32_t position);

    const Trace& trace_;
    const LazyInstrument& instrument_;
    SetpointAccess& setpoints_;
    clsTunePrefsXML& preferences_;
    clsTuneParamsXML& parameters_;
    TuneLogs& logs_;
};

}  // namespace korvane
