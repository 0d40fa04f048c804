// An instrument layer whose every answer is set by the test, with a journal of the calls and a fault at the n-th.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "korvane/instrument.h"

namespace korvane {

struct ScriptedSetpoint {
    double value = 0;
    double lower = -1e6, upper = 1e6, resolution = 0.1, tolerance = 0.01;
    std::int32_t type = 4;
    std::string name;  // internal and external alike
};

/// The state shared by all views of one scripted instrument.
struct ScriptedState {
    // What the instrument answers.
    std::string base_folder;
    std::map<std::int32_t, ScriptedSetpoint> setpoints;
    std::map<std::string, InstrumentValue> dictionary;
    std::map<std::string, InstrumentValue> registers{{"ACTUAL.NDR[NRDYSTATE]", 0},
                                                     {"REG[ACTUAL].OBJ[1].NDR[RUNSTATE]", 1}};
    std::map<std::int32_t, std::string> options;  // option code -> name, all of them present
    std::map<std::int32_t, CalibrationObject> calibrations;
    std::map<std::int32_t, double> firmware;
    VariantArray<std::string> meta_description{std::vector<std::string>{"Experiment", "Polarity (S)"}};
    double sampling_interval_seconds = 0.5e-9;
    std::string source_type = "ESI", source_word = "ESI", model = "K4430A", time_stamp = "10:00:00", title = "Scripted";
    bool flight_tube_160cm = false, positive_post_acceleration = false, has_control = true;
    std::int16_t abundance_reduction = 0;
    /// Fills the next spectrum; the number counts from 1.
    std::function<void(AcquiredSpectrum&, int)> acquire;
    std::function<std::vector<MetaItem>()> metadata_items;
    /// Called at every call, before it is answered, with its number.
    std::function<void(int)> on_call;
    /// Called after a setpoint or firmware write.
    std::function<void(std::int32_t, double)> on_write;
    /// Makes the peak finder; without it a finder that finds nothing.
    std::function<std::unique_ptr<PeakFinder>()> make_finder;

    // What was asked of it.
    std::vector<std::string> journal;  // writes, spectra and logbook entries: "write 69 = 0 (double)"
    std::vector<std::string> logbook;
    std::int32_t time_segment = 0, scan_segment = 0;  // of the last access to the setpoint table
    int spectra = 0;
    int calls = 0;
    /// Raised at this call (from 1) and, when `fault_stays`, at every later one.
    std::optional<int> fault_at;
    bool fault_stays = false;
    Error fault{-4711, "Instrument", "scripted fault"};

    void call();
    ScriptedSetpoint& setpoint(std::int32_t index);
};

class ScriptedLayer final : public InstrumentLayer {
public:
    std::unique_ptr<InstrumentGlobals> create_globals() override;
    std::unique_ptr<PathInformation> create_path_information() override;
    std::unique_ptr<LogbookEntry> create_logbook_entry() override;
    std::unique_ptr<PeakFinder> create_peak_finder() override;

    std::shared_ptr<ScriptedState> state = std::make_shared<ScriptedState>();
};

/// Peaks given as records in ns; a finder made from them lists those whose centroid lies in its window, and notes how
/// it was set up.
struct ScriptedPeaks {
    std::vector<PeakInfo> peaks;
    double baseline = 7.5;
    bool returns_no_list = false;
    PeakUncertainty uncertainty{0.25, 1, 2, 3, 4};  // of every peak, in ns
    std::vector<std::string> journal;
    std::unique_ptr<PeakFinder> make();
};

}  // namespace korvane
