#include "instrument/simulator/simulator.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "instrument/embedded/instrument.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/simulator/spectrum_generator.h"
#include "korvane/embedded_parts.h"
#include "korvane/error.h"
#include "korvane/instrument_contract.h"
#include "platform/files.h"

namespace korvane {

namespace simulation {

namespace {

[[noreturn]] void refuse_file(std::int32_t number, const std::string& what, const std::string& path,
                              const FileError& fault) {
    throw Error(number, "Simulator", what + " file[" + path + "]: " + fault.what());
}

/// What a file holds that is the one of `what`; nothing where it does not exist and need not.
std::optional<std::string> read_file(Files& files, const std::string& path, const std::string& what, bool is_needed) {
    try {
        if (!is_needed && !files.status(path).exists) return std::nullopt;
        std::string bytes;
        files.read(path, bytes);
        return bytes;
    } catch (const FileError& fault) {
        refuse_file(error_number::file_or_element, what, path, fault);
    }
}

/// Counts one poll; true while `faulty_polls` (all, when negative) have not passed.
bool still_faulty(std::int64_t& polls, std::int64_t faulty_polls) {
    return faulty_polls < 0 || polls++ < faulty_polls;
}

/// The scene's physics behind the embedded front.
///
/// The state is saved at the first change and again at the end, when anything has changed since. A save brings what
/// this program changed into what the file holds by then, so that programs that share the instrument lose nothing of
/// each other's: changed setpoints and calibrations stand, hours add up.
class SimulatedInstrument final : public embedded::Instrument {
public:
    SimulatedInstrument(Scene scene, SimulatorOptions options, std::shared_ptr<Files> files,
                        std::shared_ptr<Clock> clock)
        : Instrument("Simulator", scene.instrument, std::move(clock)),
          scene_(std::move(scene)),
          options_(std::move(options)),
          files_(std::move(files)) {
        setpoints_.preset(scene_.setpoints);
        for (const SetpointFault& fault : scene_.faults.setpoints)
            setpoints_.delay(fault.setpoint, fault.after_spectra);
        kept_.calibrations = {scene_.flight.law, scene_.flight.law};
        std::ranges::transform(scene_.slicer, kept_.slicer_hours.emplace().begin(), &SlicerPositionSetup::hours);
        if (const auto state = saved_state()) restore(*state);
        const VariantArray<std::int32_t> flags(scene_.flight.use_flags);
        for (std::size_t polarity = 0; polarity < lent_.size(); ++polarity) {
            const embedded::CalibrationContent& content = *kept_.calibrations[polarity];
            lent_[polarity] = make_square_law_calibration(content.coefficients, flags, content.settings);
        }
        synced_ = current();
    }
    ~SimulatedInstrument() override {
        try {
            if (changed_since_) save();
        } catch (...) {  // there is nobody left to tell; what was saved last stays
        }
    }

private:
    Turn next_turn() override {
        const std::int64_t number = next_spectrum_++;
        const bool is_late = scene_.faults.late_spectra.contains(number);
        return {number, scene_.instrument.spectrum_period_ms + (is_late ? scene_.faults.late_milliseconds : 0)};
    }

    std::optional<std::int32_t> acquire(std::int64_t number, AcquiredSpectrum* spectrum) override {
        auto polarity = static_cast<std::int32_t>(setpoints_.actual(contract::setpoint.polarity));
        if (scene_.faults.wrong_polarity.contains(number)) polarity = 1 - polarity;
        const double minutes = elapsed_minutes_;
        const AcquisitionConditions conditions = acquisition_conditions(scene_, polarity, setpoints_);
        elapsed_minutes_ += conditions.scan_seconds / 60.0;
        const auto position = static_cast<std::size_t>(setpoints_.actual(embedded::slicer_position_setpoint)) - 1;
        kept_.slicer_hours->at(position) += conditions.scan_seconds / 3600.0;
        changed_since_ = true;
        const bool is_empty = scene_.faults.empty_spectra.contains(number);
        if (spectrum) {
            spectrum->retention_time = minutes;
            spectrum->start_time_ns = scene_.instrument.spectrum_start_ns;
            if (!is_empty) fill(number, conditions, *spectrum);
        }
        return is_empty ? std::nullopt : std::optional(polarity);
    }

    double interval_seconds() const override {
        return acquisition_conditions(scene_, 0, setpoints_).sampling_interval_ns * 1e-9;
    }

    std::unique_ptr<PeakFinder> make_finder() const override {
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

    embedded::CalibrationContent dictionary_calibration() const override { return scene_.flight.law; }

    std::optional<InstrumentValue> own_dictionary_item(const std::string& name) const override {
        for (std::size_t slot = 0; slot < slicer_position_count; ++slot)
            if (name == contract::slicer_hours_item(static_cast<std::int32_t>(slot) + 1))
                return (*kept_.slicer_hours)[slot];
        return std::nullopt;
    }

    bool is_ready() override { return !still_faulty(ready_polls_, scene_.faults.not_ready_polls); }
    bool is_pre_run() override { return !still_faulty(run_state_polls_, scene_.faults.run_state_polls); }
    void setpoint_changed() override { keep_change(); }
    void store_calibration(std::size_t polarity, const MassTimeCalibration& calibration) override {
        const auto own_flags = lent_[polarity]->use_flags(), new_flags = calibration.use_flags();
        if (!std::ranges::equal(own_flags.elements(), new_flags.elements()))
            raise_runtime_fault(error_number::invalid_call,
                                "calibration whose term-use flags are not the instrument's");
        const embedded::CalibrationContent content{calibration.coefficients(), calibration.settings()};
        lent_[polarity]->set_coefficients(content.coefficients);
        lent_[polarity]->set_settings(content.settings);
        if (std::exchange(kept_.calibrations[polarity], content) != content) keep_change();
    }

    void fill(std::int64_t number, const AcquisitionConditions& conditions, AcquiredSpectrum& spectrum) {
        try {
            // Made when the first spectrum is asked for: its tables cost more than everything else at the start.
            if (!generator_) generator_.emplace(scene_, options_.seed);
            spectrum.start_time_ns += generator_->start_phase(number) * conditions.sampling_interval_ns;
            const double drift = 0.5e-6 * scene_.flight.mass_drift_ppm_per_minute * spectrum.retention_time;
            spectrum.y_data = generator_->generate(number, conditions, {spectrum.start_time_ns, 1.0 + drift});
        } catch (const Error& fault) {
            if (fault.number() == error_number::file_or_element) throw;
            throw Error(error_number::file_or_element, "Simulator",
                        "scene file[" + options_.scene_path.value_or("default scene") + "]: " + fault.description());
        }
        const MassTimeCalibration& calibration = *lent_[static_cast<std::size_t>(conditions.polarity)];
        spectrum.mass_data = mass_axis(calibration, spectrum.start_time_ns, conditions);
    }

    /// Masses of the samples, computed once for as long as nothing that they depend on changes; copies share storage.
    const VariantArray<double>& mass_axis(const MassTimeCalibration& calibration, double start_time_ns,
                                          const AcquisitionConditions& conditions) {
        const double interval_ns = conditions.sampling_interval_ns;
        const std::tuple basis(calibration.coefficients(), start_time_ns, interval_ns, conditions.sample_count);
        if (mass_axis_basis_ == basis) return mass_axis_;
        std::vector<double> times(conditions.sample_count);
        for (std::size_t i = 0; i < times.size(); ++i) times[i] = start_time_ns + static_cast<double>(i) * interval_ns;
        mass_axis_ = calibration.masses_from_times(times);
        mass_axis_basis_ = basis;
        return mass_axis_;
    }

    /// Nothing where no state is kept, or none yet.
    std::optional<InstrumentState> saved_state() const {
        if (!options_.state_path) return std::nullopt;
        const auto text = read_file(*files_, *options_.state_path, "state", false);
        return text ? std::optional(parse_state(*text, *options_.state_path)) : std::nullopt;
    }

    void restore(const InstrumentState& state) {
        setpoints_.preset(state.setpoints);
        for (const auto part : {&InstrumentState::Calibrations::positive, &InstrumentState::Calibrations::negative})
            if (state.calibrations.*part) kept_.calibrations.*part = state.calibrations.*part;
        if (state.slicer_hours) kept_.slicer_hours = state.slicer_hours;
    }

    InstrumentState current() const {
        InstrumentState state = kept_;
        state.setpoints = setpoints_.commanded_by_name();
        return state;
    }

    InstrumentState merged_into(const InstrumentState& present) const {
        InstrumentState merged = current();
        for (auto& [name, value] : merged.setpoints)
            if (const auto other = present.setpoints.find(name);
                other != present.setpoints.end() && value == synced_.setpoints.at(name))
                value = other->second;
        for (const auto part : {&InstrumentState::Calibrations::positive, &InstrumentState::Calibrations::negative})
            if (present.calibrations.*part && merged.calibrations.*part == synced_.calibrations.*part)
                merged.calibrations.*part = present.calibrations.*part;
        if (present.slicer_hours)
            for (std::size_t slot = 0; slot < slicer_position_count; ++slot)
                (*merged.slicer_hours)[slot] =
                    (*present.slicer_hours)[slot] +
                    std::max(0.0, (*kept_.slicer_hours)[slot] - (*synced_.slicer_hours)[slot]);
        return merged;
    }

    /// The first change is saved at once, so that one that cannot be kept is reported.
    void keep_change() {
        changed_since_ = true;
        if (!saved_) save();
    }

    /// Under the lock of the file's editors.
    void save() {
        if (const auto& path = options_.state_path) {
            const auto lock = wait_for_edit_lock(*files_, *clock_, *path);
            const std::string text = state_text(merged_into(saved_state().value_or(InstrumentState())));
            try {
                safe_save(*files_, *path, text);
            } catch (const FileError& fault) {
                refuse_file(fault.runtime_error_number(), "state", *path, fault);
            }
        }
        synced_ = current();
        saved_ = true;
        changed_since_ = false;
    }

    const Scene scene_;
    const SimulatorOptions options_;
    const std::shared_ptr<Files> files_;
    std::optional<SpectrumGenerator> generator_;
    InstrumentState kept_;    // calibrations and hours
    InstrumentState synced_;  // all of it, as this program had it when it was last loaded or saved
    bool saved_ = false, changed_since_ = false;
    VariantArray<double> mass_axis_;
    std::optional<std::tuple<CalibrationCoefficients, double, double, std::size_t>> mass_axis_basis_;
    std::int64_t next_spectrum_ = 0;
    double elapsed_minutes_ = 0;
    std::int64_t ready_polls_ = 0, run_state_polls_ = 0;
};

}  // namespace

}  // namespace simulation

std::shared_ptr<InstrumentLayer> make_simulator(const SimulatorOptions& options, std::shared_ptr<Files> files,
                                                std::shared_ptr<Clock> clock) {
    using namespace simulation;
    return embedded::make_layer("Simulator", options.base_folder, files, clock, [options, files, clock] {
        Scene scene = default_scene();
        if (const auto& path = options.scene_path) scene = parse_scene(*read_file(*files, *path, "scene", true), *path);
        return std::make_shared<SimulatedInstrument>(std::move(scene), options, files, clock);
    });
}

}  // namespace korvane
