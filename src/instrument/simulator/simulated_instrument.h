// The simulated instrument: the scene's physics behind the embedded front.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "instrument/embedded/instrument.h"
#include "instrument/simulator/acquisition_conditions.h"
#include "instrument/simulator/mass_axis.h"
#include "instrument/simulator/spectrum_generator.h"
#include "instrument/simulator/state_file.h"

namespace korvane::simulation {

/// The state is saved at the first change and again at the end, when anything has changed since. A save brings what
/// this program changed into what the file holds by then, so that programs that share the instrument lose nothing of
/// each other's: changed setpoints and calibrations stand, hours add up.
class SimulatedInstrument final : public embedded::Instrument {
public:
    /// `scene_name` is what errors call the scene.
    SimulatedInstrument(Scene scene, std::string scene_name, std::uint64_t seed, StateFile state_file,
                        std::shared_ptr<Clock> clock);
    ~SimulatedInstrument() override;

private:
    Turn next_turn() override;
    std::optional<std::int32_t> acquire(std::int64_t number, AcquiredSpectrum* spectrum) override;
    double interval_seconds() const override;
    std::unique_ptr<PeakFinder> make_finder() const override;
    embedded::CalibrationContent dictionary_calibration(std::int32_t polarity) const override;
    std::optional<InstrumentValue> own_dictionary_item(const std::string& name) const override;
    bool is_ready() override;
    bool is_pre_run() override;
    void setpoint_changed() override { keep_change(); }
    void store_calibration(std::size_t polarity, const MassTimeCalibration& calibration) override;

    void fill(std::int64_t number, std::int32_t polarity, double minutes, AcquiredSpectrum& spectrum);
    SpectrumGenerator& generator();
    [[noreturn]] void raise_of_scene(const Error& fault) const;
    void restore(InstrumentState state);
    InstrumentState current() const;
    InstrumentState merged_into(const std::optional<InstrumentState>& present) const;
    void keep_change();
    void save();

    const Scene scene_;
    const std::string scene_name_;
    const std::uint64_t seed_;
    const StateFile state_file_;
    std::optional<SpectrumGenerator> generator_;
    InstrumentState kept_;    // calibrations and hours
    InstrumentState synced_;  // all of it, as this program had it when it was last loaded or saved
    bool saved_ = false, changed_since_ = false;
    MassAxis mass_axis_;
    std::int64_t next_spectrum_ = 0;
    double elapsed_minutes_ = 0;
    std::int64_t ready_polls_ = 0, run_state_polls_ = 0;
};

}  // namespace korvane::simulation
