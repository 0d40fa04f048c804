#include "instrument/simulator/simulated_instrument.h"

#include <algorithm>

#include "instrument/masstime/square_law_calibration.h"
#include "korvane/error.h"

namespace korvane::simulation {

namespace {

constexpr double not_ready = -1, ready = 0;
constexpr double pre_run = 1, running = 2;

void check_segments(std::int32_t time_segment, std::int32_t scan_segment) {
    if (time_segment == 0 && scan_segment == 0) return;
    raise_runtime_fault(error_number::subscript, "time segment[" + std::to_string(time_segment) + "], scan segment[" +
                                                     std::to_string(scan_segment) + "]");
}

std::size_t polarity_slot(std::int32_t polarity) {
    if (polarity != 0 && polarity != 1)
        raise_runtime_fault(error_number::invalid_call, "calibration of polarity[" + std::to_string(polarity) + "]");
    return static_cast<std::size_t>(polarity);
}

void check_channel(std::int32_t channel) {
    if (channel != quad_amu_channel)
        raise_runtime_fault(error_number::invalid_call, "firmware channel[" + std::to_string(channel) + "]");
}

// Counts one poll; true while `faulty_polls` (all, when negative) have not passed.
bool still_faulty(std::int64_t& polls, std::int64_t faulty_polls) {
    return faulty_polls < 0 || polls++ < faulty_polls;
}

}  // namespace

SimulatedInstrument::SimulatedInstrument(Scene scene, std::uint64_t seed, StateFile state_file,
                                         std::shared_ptr<Clock> clock)
    : scene_(std::move(scene)),
      state_file_(std::move(state_file)),
      clock_(std::move(clock)),
      setpoints_(scene_),
      generator_(scene_, seed) {
    for (std::int32_t polarity : {0, 1}) {
        const CalibrationContent content = factory_calibration(polarity);
        const std::size_t slot = polarity_slot(polarity);
        stored_calibrations_[slot] = content;
        calibrations_[slot] = std::make_shared<SquareLawCalibration>(
            content.coefficients, VariantArray<std::int32_t>(scene_.flight.use_flags), content.settings);
    }
    for (const SlicerPositionSetup& position : scene_.slicer) slicer_hours_.push_back(position.hours);
    if (const auto state = state_file_.load()) restore(*state);
}

SimulatedInstrument::~SimulatedInstrument() {
    if (unsaved_hours_ == 0.0) return;
    try {
        state_file_.save(current_state());
    } catch (...) {  // there is nobody left to tell; hours of the last save stay
    }
}

CalibrationContent SimulatedInstrument::factory_calibration(std::int32_t polarity) const {
    return scene_.flight.lent[polarity_slot(polarity)].value_or(scene_.flight.law);
}

void SimulatedInstrument::restore(const InstrumentState& state) {
    setpoints_.restore(state.setpoints);
    for (std::size_t slot = 0; slot < calibrations_.size(); ++slot) {
        if (!state.calibrations[slot]) continue;
        stored_calibrations_[slot] = *state.calibrations[slot];
        calibrations_[slot]->set_coefficients(stored_calibrations_[slot].coefficients);
        calibrations_[slot]->set_settings(stored_calibrations_[slot].settings);
    }
    if (state.slicer_hours) slicer_hours_ = *state.slicer_hours;
}

InstrumentState SimulatedInstrument::current_state() const {
    InstrumentState state;
    state.setpoints = setpoints_.commanded_by_name();
    for (std::size_t slot = 0; slot < stored_calibrations_.size(); ++slot)
        state.calibrations[slot] = stored_calibrations_[slot];
    state.slicer_hours = slicer_hours_;
    return state;
}

double SimulatedInstrument::setpoint_value(std::int32_t index) {
    const std::lock_guard lock(mutex_);
    return setpoints_.commanded(index);
}

InstrumentValue SimulatedInstrument::setpoint_value(std::int32_t index, std::int32_t time_segment,
                                                    std::int32_t scan_segment) {
    check_segments(time_segment, scan_segment);
    return SetpointBank::typed(setpoints_.definition(index), setpoint_value(index));
}

void SimulatedInstrument::write_setpoint(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
                                         const SetpointValue& value) {
    check_segments(time_segment, scan_segment);
    const std::lock_guard lock(mutex_);
    if (setpoints_.command(index, value)) state_file_.save(current_state());
}

void SimulatedInstrument::write_channel(std::int32_t channel, float value) {
    check_channel(channel);
    const std::lock_guard lock(mutex_);
    if (setpoints_.command_now(setpoint::quad_amu, static_cast<double>(value))) state_file_.save(current_state());
}

double SimulatedInstrument::read_channel(std::int32_t channel) {
    check_channel(channel);
    const std::lock_guard lock(mutex_);
    return setpoints_.actual(setpoint::quad_amu);
}

double SimulatedInstrument::sampling_interval_seconds() {
    const std::lock_guard lock(mutex_);
    return simulation::sampling_interval_seconds(static_cast<std::int32_t>(setpoints_.actual(setpoint::sampling_rate)));
}

PeakFinderOptions SimulatedInstrument::peak_finder_options() {
    const std::lock_guard lock(mutex_);
    const auto polarity = static_cast<std::int32_t>(setpoints_.actual(setpoint::polarity));
    const AcquisitionConditions conditions = acquisition_conditions(scene_, polarity, actual_values());
    PeakFinderOptions options;
    options.width = WidthModel{conditions.resolution_limit, scene_.peak_shape.detector_width_ns};
    options.counts_per_ion = conditions.counts_per_ion;
    options.saturation_counts = conditions.full_scale();
    options.tail_fraction = scene_.peak_shape.tail_fraction;
    options.tail_pulse_part = 1;
    const bool pulses = scene_.detector.statistics == DetectorStatistics::pulse;
    options.ion_height_spread = pulses ? scene_.detector.pulse_height_spread : 0;
    options.ion_pulse_fwhm_ns = pulses ? scene_.peak_shape.detector_width_ns : 0;
    return options;
}

CalibrationObject SimulatedInstrument::calibration(std::int32_t polarity) {
    return calibrations_[polarity_slot(polarity)];
}

void SimulatedInstrument::store_calibration(std::int32_t polarity, const MassTimeCalibration& calibration) {
    const std::size_t slot = polarity_slot(polarity);
    const auto own_flags = calibrations_[slot]->use_flags();
    const auto new_flags = calibration.use_flags();
    if (!std::ranges::equal(own_flags.elements(), new_flags.elements()))
        raise_runtime_fault(error_number::invalid_call, "calibration whose term-use flags are not the instrument's");
    const std::lock_guard lock(mutex_);
    const CalibrationContent content{calibration.coefficients(), calibration.settings()};
    calibrations_[slot]->set_coefficients(content.coefficients);
    calibrations_[slot]->set_settings(content.settings);
    stored_calibrations_[slot] = content;
    state_file_.save(current_state());
}

double SimulatedInstrument::read_register(const std::string& path) {
    const std::lock_guard lock(mutex_);
    if (path == "ACTUAL.NDR[NRDYSTATE]")
        return still_faulty(ready_polls_, scene_.faults.not_ready_polls) ? not_ready : ready;
    if (path == "REG[ACTUAL].OBJ[1].NDR[RUNSTATE]")
        return still_faulty(run_state_polls_, scene_.faults.run_state_polls) ? running : pre_run;
    raise_runtime_fault(error_number::invalid_call, "register[" + path + "]");
}

InstrumentValue SimulatedInstrument::dictionary_item(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto factory = factory_calibration(static_cast<std::int32_t>(setpoints_.commanded(setpoint::polarity)));
    if (name == "CoefA") return factory.coefficients.A;
    if (name == "CoefB") return factory.coefficients.B;
    if (name == "CalReserved1") return factory.settings.CalReserved1;
    if (name == "CalTraditionalWeighting") return factory.settings.CalTraditionalWeighting;
    if (name == "CalPolynomialWeighting") return factory.settings.CalPolynomialWeighting;
    return slicer_item(name);
}

// "SlicerPos.Count", "SlicerPos[n].Hours" and "SlicerPos[n].HighResolution", n from 1.
InstrumentValue SimulatedInstrument::slicer_item(const std::string& name) const {
    if (name == "SlicerPos.Count") return static_cast<std::int32_t>(slicer_hours_.size());
    for (std::size_t slot = 0; slot < slicer_hours_.size(); ++slot) {
        const std::string position = "SlicerPos[" + std::to_string(slot + 1) + "]";
        if (name == position + ".Hours") return slicer_hours_[slot];
        if (name == position + ".HighResolution") return std::int32_t{scene_.slicer[slot].high_resolution};
    }
    raise_runtime_fault(error_number::invalid_call, "data dictionary item[" + name + "]");
}

}  // namespace korvane::simulation
