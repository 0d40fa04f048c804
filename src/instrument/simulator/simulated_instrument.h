// The instrument behind all views: one mutex, the setpoints, the calibrations and the acquisition.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "instrument/simulator/mass_axis.h"
#include "instrument/simulator/setpoint_bank.h"
#include "instrument/simulator/spectrum_generator.h"
#include "instrument/simulator/state_file.h"
#include "korvane/embedded_parts.h"
#include "korvane/instrument.h"
#include "korvane/system.h"

namespace korvane::simulation {

class SimulatedInstrument {
public:
    SimulatedInstrument(Scene scene, std::uint64_t seed, StateFile state_file, std::shared_ptr<Clock> clock);
    ~SimulatedInstrument();

    const Scene& scene() const { return scene_; }
    Clock& clock() const { return *clock_; }

    // Setpoints. Error 9 naming an unknown index or segment; the instrument has time and scan segment 0 only.
    double setpoint_value(std::int32_t index);
    InstrumentValue setpoint_value(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment);
    void write_setpoint(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
                        const SetpointValue& value);
    const SetpointDefinition& setpoint_definition(std::int32_t index) const { return setpoints_.definition(index); }

    /// Firmware channel 22, the quadrupole. Error 5 naming another channel.
    void write_channel(std::int32_t channel, float value);
    double read_channel(std::int32_t channel);

    // Acquisition.
    void acquire(AcquiredSpectrum& spectrum);
    std::vector<MetaItem> acquire_metadata();
    std::vector<std::string> metadata_description() const;
    double sampling_interval_seconds();
    PeakFinderOptions peak_finder_options();

    // Calibrations by polarity; error 5 naming another one.
    CalibrationObject calibration(std::int32_t polarity);
    void store_calibration(std::int32_t polarity, const MassTimeCalibration& calibration);

    /// "ACTUAL.NDR[NRDYSTATE]" and "REG[ACTUAL].OBJ[1].NDR[RUNSTATE]"; error 5 naming another path.
    double read_register(const std::string& path);
    /// Error 5 naming an unknown item.
    InstrumentValue dictionary_item(const std::string& name);

private:
    struct Shot {
        std::int64_t number = 0;
        std::int32_t polarity = 0;
        bool empty = false;
        double retention_minutes = 0;
    };

    Shot next_shot();
    SetpointReader actual_values() const;
    std::vector<InstrumentValue> metadata_values(const Shot& shot) const;
    void fill(const Shot& shot, AcquiredSpectrum& spectrum);
    CalibrationContent factory_calibration(std::int32_t polarity) const;
    void restore(const InstrumentState& state);
    InstrumentState current_state() const;
    void run_slicer(double seconds);
    InstrumentValue slicer_item(const std::string& name) const;

    const Scene scene_;
    StateFile state_file_;
    std::shared_ptr<Clock> clock_;
    std::mutex mutex_;
    SetpointBank setpoints_;
    SpectrumGenerator generator_;
    std::array<CalibrationObject, 2> calibrations_;
    std::array<CalibrationContent, 2> stored_calibrations_;
    std::vector<double> slicer_hours_;
    double unsaved_hours_ = 0;
    MassAxis mass_axis_;
    std::int64_t next_spectrum_ = 0;
    double elapsed_minutes_ = 0;
    std::int64_t ready_polls_ = 0, run_state_polls_ = 0;
};

}  // namespace korvane::simulation
