#include "instrument/simulator/simulated_instrument.h"

#include <algorithm>
#include <utility>

#include "instrument/masstime/square_law_calibration.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "korvane/error.h"
#include "korvane/instrument_contract.h"

namespace korvane::simulation {

namespace {

/// Counts one poll; true while `faulty_polls` (all, when negative) have not passed.
bool still_faulty(std::int64_t& polls, std::int64_t faulty_polls) {
    return faulty_polls < 0 || polls++ < faulty_polls;
}

}  // namespace

SimulatedInstrument::SimulatedInstrument(Scene scene, std::string scene_name, std::uint64_t seed, StateFile state_file,
                                         std::shared_ptr<Clock> clock)
    : Instrument("Simulator", scene.instrument, std::move(clock)),
      scene_(std::move(scene)),
      scene_name_(std::move(scene_name)),
      seed_(seed),
      state_file_(std::move(state_file)) {
    setpoints_.preset(scene_.setpoints);
    for (const SetpointFault& fault : scene_.faults.setpoints) setpoints_.delay(fault.setpoint, fault.after_spectra);
    kept_.calibrations = {dictionary_calibration(0), dictionary_calibration(1)};
    std::ranges::transform(scene_.slicer, kept_.slicer_hours.emplace().begin(), &SlicerPositionSetup::hours);
    if (auto state = state_file_.load()) restore(*std::move(state));
    const VariantArray<std::int32_t> flags(scene_.flight.use_flags);
    for (std::size_t polarity = 0; polarity < lent_.size(); ++polarity) {
        const embedded::CalibrationContent& content = *kept_.calibrations[polarity];
        lent_[polarity] = std::make_shared<SquareLawCalibration>(content.coefficients, flags, content.settings);
    }
    synced_ = current();
}

SimulatedInstrument::~SimulatedInstrument() {
    try {
        if (changed_since_) save();
    } catch (...) {  // there is nobody left to tell; what was saved last stays
    }
}

void SimulatedInstrument::restore(InstrumentState state) {
    setpoints_.preset(state.setpoints);
    for (std::size_t polarity = 0; polarity < lent_.size(); ++polarity)
        if (state.calibrations[polarity]) kept_.calibrations[polarity] = state.calibrations[polarity];
    if (state.slicer_hours) kept_.slicer_hours = state.slicer_hours;
}

// The first change is saved at once, so that one that cannot be kept is reported.
void SimulatedInstrument::keep_change() {
    changed_since_ = true;
    if (!saved_) save();
}

InstrumentState SimulatedInstrument::current() const {
    InstrumentState state = kept_;
    state.setpoints = setpoints_.commanded_by_name();
    return state;
}

InstrumentState SimulatedInstrument::merged_into(const std::optional<InstrumentState>& present) const {
    InstrumentState merged = current();
    if (!present) return merged;
    for (auto& [name, value] : merged.setpoints)
        if (const auto other = present->setpoints.find(name);
            other != present->setpoints.end() && value == synced_.setpoints.at(name))
            value = other->second;
    const auto& [positive, negative] = present->calibrations;
    if (positive && merged.calibrations.positive == synced_.calibrations.positive)
        merged.calibrations.positive = positive;
    if (negative && merged.calibrations.negative == synced_.calibrations.negative)
        merged.calibrations.negative = negative;
    if (present->slicer_hours)
        for (std::size_t slot = 0; slot < slicer_position_count; ++slot)
            (*merged.slicer_hours)[slot] = (*present->slicer_hours)[slot] +
                                           std::max(0.0, (*kept_.slicer_hours)[slot] - (*synced_.slicer_hours)[slot]);
    return merged;
}

void SimulatedInstrument::save() {
    state_file_.update([this](const auto& present) { return merged_into(present); });
    synced_ = current();
    saved_ = true;
    changed_since_ = false;
}

embedded::Instrument::Turn SimulatedInstrument::next_turn() {
    const std::int64_t number = next_spectrum_++;
    const bool is_late = scene_.faults.late_spectra.contains(number);
    return {number, scene_.instrument.spectrum_period_ms + (is_late ? scene_.faults.late_milliseconds : 0)};
}

std::optional<std::int32_t> SimulatedInstrument::acquire(std::int64_t number, AcquiredSpectrum* spectrum) {
    auto polarity = static_cast<std::int32_t>(setpoints_.actual(contract::setpoint.polarity));
    if (scene_.faults.wrong_polarity.contains(number)) polarity = 1 - polarity;
    const double minutes = elapsed_minutes_;
    const double seconds = acquisition_conditions(scene_, polarity, setpoints_).scan_seconds;
    elapsed_minutes_ += seconds / 60.0;
    const auto position = static_cast<std::size_t>(setpoints_.actual(embedded::slicer_position_setpoint)) - 1;
    kept_.slicer_hours->at(position) += seconds / 3600.0;
    changed_since_ = true;
    const bool is_empty = scene_.faults.empty_spectra.contains(number);
    if (spectrum) {
        spectrum->retention_time = minutes;
        spectrum->start_time_ns = scene_.instrument.spectrum_start_ns;
        if (!is_empty) fill(number, polarity, minutes, *spectrum);
    }
    return is_empty ? std::nullopt : std::optional(polarity);
}

void SimulatedInstrument::fill(std::int64_t number, std::int32_t polarity, double minutes, AcquiredSpectrum& spectrum) {
    const AcquisitionConditions conditions = acquisition_conditions(scene_, polarity, setpoints_);
    SpectrumTiming timing;
    timing.start_time_ns =
        scene_.instrument.spectrum_start_ns + generator().start_phase(number) * conditions.sampling_interval_ns;
    timing.time_factor = 1.0 + 0.5e-6 * scene_.flight.mass_drift_ppm_per_minute * minutes;
    spectrum.start_time_ns = timing.start_time_ns;
    spectrum.mass_data = mass_axis_.masses(*lent_[static_cast<std::size_t>(polarity)], timing.start_time_ns,
                                           conditions.sampling_interval_ns, conditions.sample_count);
    try {
        spectrum.y_data = generator().generate(number, conditions, timing, setpoints_.revision());
    } catch (const Error& fault) {
        raise_of_scene(fault);
    }
}

void SimulatedInstrument::raise_of_scene(const Error& fault) const {
    if (fault.number() == error_number::file_or_element) throw fault;
    throw Error(error_number::file_or_element, "Simulator", "scene file[" + scene_name_ + "]: " + fault.description());
}

/// Made when the first spectrum is asked for: its tables cost more than everything else at the start.
SpectrumGenerator& SimulatedInstrument::generator() {
    if (generator_) return *generator_;
    try {
        return generator_.emplace(scene_, seed_);
    } catch (const Error& fault) {
        raise_of_scene(fault);
    }
}

double SimulatedInstrument::interval_seconds() const {
    return simulation::sampling_interval_seconds(
        static_cast<std::int32_t>(setpoints_.actual(contract::setpoint.sampling_rate)));
}

std::unique_ptr<PeakFinder> SimulatedInstrument::make_finder() const {
    const auto polarity = static_cast<std::int32_t>(setpoints_.actual(contract::setpoint.polarity));
    const AcquisitionConditions conditions = acquisition_conditions(scene_, polarity, setpoints_);
    PeakFinderOptions options;
    options.width = WidthModel{conditions.resolution_limit, scene_.peak_shape.detector_width_ns};
    options.counts_per_ion = conditions.counts_per_ion;
    options.saturation_counts = conditions.full_scale();
    options.tail_fraction = scene_.peak_shape.tail_fraction;
    options.tail_pulse_part = 1;
    const bool pulses = scene_.detector.statistics == DetectorStatistics::pulse;
    options.ion_height_spread = pulses ? scene_.detector.pulse_height_spread : 0;
    options.ion_pulse_fwhm_ns = pulses ? scene_.peak_shape.detector_width_ns : 0;
    return make_peak_finder(options);
}

embedded::CalibrationContent SimulatedInstrument::dictionary_calibration(std::int32_t polarity) const {
    const FlightSetup& flight = scene_.flight;
    return (polarity == 0 ? flight.lent_positive : flight.lent_negative).value_or(flight.law);
}

// "SlicerPos.Count", "SlicerPos[n].Hours" and "SlicerPos[n].HighResolution", n from 1.
std::optional<InstrumentValue> SimulatedInstrument::own_dictionary_item(const std::string& name) const {
    if (name == "SlicerPos.Count") return static_cast<std::int32_t>(slicer_position_count);
    for (std::size_t slot = 0; slot < slicer_position_count; ++slot) {
        const auto position = static_cast<std::int32_t>(slot) + 1;
        if (name == contract::slicer_hours_item(position)) return (*kept_.slicer_hours)[slot];
        if (name == "SlicerPos[" + std::to_string(position) + "].HighResolution")
            return std::int32_t{scene_.slicer[slot].high_resolution};
    }
    return std::nullopt;
}

bool SimulatedInstrument::is_ready() {
    return !still_faulty(ready_polls_, scene_.faults.not_ready_polls);
}

bool SimulatedInstrument::is_pre_run() {
    return !still_faulty(run_state_polls_, scene_.faults.run_state_polls);
}

void SimulatedInstrument::store_calibration(std::size_t polarity, const MassTimeCalibration& calibration) {
    const auto own_flags = lent_[polarity]->use_flags(), new_flags = calibration.use_flags();
    if (!std::ranges::equal(own_flags.elements(), new_flags.elements()))
        raise_runtime_fault(error_number::invalid_call, "calibration whose term-use flags are not the instrument's");
    const embedded::CalibrationContent content{calibration.coefficients(), calibration.settings()};
    lent_[polarity]->set_coefficients(content.coefficients);
    lent_[polarity]->set_settings(content.settings);
    if (std::exchange(kept_.calibrations[polarity], content) != content) keep_change();
}

}  // namespace korvane::simulation
