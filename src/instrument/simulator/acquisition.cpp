// The acquisition of a spectrum by the simulated instrument.
#include "instrument/simulator/simulated_instrument.h"

namespace korvane::simulation {

namespace {

constexpr const char* experiment_name = "Experiment";
constexpr std::int32_t experiment = 0;
constexpr double save_interval_hours = 0.01;

}  // namespace

SetpointReader SimulatedInstrument::actual_values() const {
    return [this](std::int32_t index) { return setpoints_.actual(index); };
}

// Waits as long as the next spectrum takes and settles what it is.
SimulatedInstrument::Shot SimulatedInstrument::next_shot() {
    Shot shot;
    std::int32_t wait_milliseconds = scene_.instrument.spectrum_period_ms;
    {
        const std::lock_guard lock(mutex_);
        shot.number = next_spectrum_++;
    }
    if (scene_.faults.late_spectra.contains(shot.number)) wait_milliseconds += scene_.faults.late_milliseconds;
    if (wait_milliseconds > 0) clock_->sleep_milliseconds(wait_milliseconds);

    const std::lock_guard lock(mutex_);
    setpoints_.spectrum_begins();
    shot.polarity = static_cast<std::int32_t>(setpoints_.actual(setpoint::polarity));
    if (scene_.faults.wrong_polarity.contains(shot.number)) shot.polarity = 1 - shot.polarity;
    shot.empty = scene_.faults.empty_spectra.contains(shot.number);
    shot.retention_minutes = elapsed_minutes_;
    const double seconds = acquisition_conditions(scene_, shot.polarity, actual_values()).scan_seconds;
    elapsed_minutes_ += seconds / 60.0;
    run_slicer(seconds);
    return shot;
}

void SimulatedInstrument::run_slicer(double seconds) {
    const auto position = static_cast<std::size_t>(setpoints_.actual(setpoint::slicer_position)) - 1;
    const double hours = seconds / 3600.0;
    slicer_hours_.at(position) += hours;
    if (!state_file_.is_kept()) return;
    unsaved_hours_ += hours;
    if (unsaved_hours_ < save_interval_hours) return;
    state_file_.save(current_state());
    unsaved_hours_ = 0;
}

std::vector<InstrumentValue> SimulatedInstrument::metadata_values(const Shot& shot) const {
    std::vector<InstrumentValue> values{experiment};
    for (const SetpointDefinition& definition : setpoint_definitions()) {
        const bool is_polarity = definition.index == setpoint::polarity;
        const double value = is_polarity ? shot.polarity : setpoints_.actual(definition.index);
        values.push_back(SetpointBank::typed(definition, value));
    }
    return values;
}

void SimulatedInstrument::fill(const Shot& shot, AcquiredSpectrum& spectrum) {
    const AcquisitionConditions conditions = acquisition_conditions(scene_, shot.polarity, actual_values());
    SpectrumTiming timing;
    timing.start_time_ns =
        scene_.instrument.spectrum_start_ns + generator_.start_phase(shot.number) * conditions.sampling_interval_ns;
    timing.time_factor = 1.0 + 0.5e-6 * scene_.flight.mass_drift_ppm_per_minute * shot.retention_minutes;
    spectrum.start_time_ns = timing.start_time_ns;
    spectrum.mass_data =
        mass_axis_.masses(*calibrations_[static_cast<std::size_t>(shot.polarity)], timing.start_time_ns,
                          conditions.sampling_interval_ns, conditions.sample_count);
    spectrum.y_data = generator_.generate(shot.number, conditions, timing, setpoints_.revision());
    spectrum.meta_data = metadata_values(shot);
}

void SimulatedInstrument::acquire(AcquiredSpectrum& spectrum) {
    const Shot shot = next_shot();
    spectrum = {};
    spectrum.retention_time = shot.retention_minutes;
    spectrum.experiment = experiment;
    spectrum.start_time_ns = scene_.instrument.spectrum_start_ns;
    if (shot.empty) return;
    const std::lock_guard lock(mutex_);
    fill(shot, spectrum);
}

std::vector<MetaItem> SimulatedInstrument::acquire_metadata() {
    const Shot shot = next_shot();
    if (shot.empty) return {};
    const std::lock_guard lock(mutex_);
    const std::vector<InstrumentValue> values = metadata_values(shot);
    std::vector<MetaItem> items{{experiment_name, values.front()}};
    for (const SetpointDefinition& definition : setpoint_definitions())
        items.push_back({std::string(definition.external_name), values[items.size()]});
    return items;
}

std::vector<std::string> SimulatedInstrument::metadata_description() const {
    std::vector<std::string> entries{experiment_name};
    for (const SetpointDefinition& definition : setpoint_definitions())
        entries.push_back(std::string(definition.external_name) + " (S)");
    return entries;
}

}  // namespace korvane::simulation
