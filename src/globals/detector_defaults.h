// Detector targets and thresholds, and the default values a tune starts from, by the instrument's hardware options.
#pragma once

#include <string>

#include "globals/mass_calibration.h"
#include "globals/mass_range.h"
#include "globals/source_and_polarity.h"

namespace korvane {

class DetectorDefaults {
public:
    DetectorDefaults(const Trace& trace, const LazyInstrument& instrument, const CurrentSetpoints& setpoints,
                     clsTuneParamsXML& parameters, SourceAndPolarity& source, MassCalibration& calibration,
                     MassRange& mass_range)
        : trace_(trace),
          instrument_(instrument),
          setpoints_(setpoints),
          parameters_(parameters),
          source_(source),
          calibration_(calibration),
          mass_range_(mass_range) {}

    double preamp_ramp_start(bool low_gain);
    double preamp_ramp_stop(bool low_gain);
    double preamp_ramp_step();
    double pulse_height_target();
    double baseline_cutoff();
    double transients_scaling_factor();
    double full_saturation_abundance();
    double hard_saturation_threshold(std::string_view routine_name);
    double max_abundance_before_saturation();
    double saturation_begin();
    std::int32_t min_spectrum_time_us();
    std::int32_t max_spectrum_time_us();
    bool abundance_reduction_enabled();
    bool is_abundance_adjustable(const VariantArray<double>& masses);

    double initial_value(const std::string& internal_name);
    double initial_value_of_state(const std::string& internal_name);
    double fragmentor();
    double drying_gas_temperature();
    double drying_gas_pressure();
    double sheath_gas_temperature();
    double sheath_gas_pressure();

private:
    bool has_option(std::int32_t code);
    bool has_digitiser();
    bool is_dual_source();
    bool has_long_tube() { return instrument_->hardware().has_160cm_flight_tube(); }
    double gain_parameter(const std::string& key) { return parameters_.GetAutotuneLimitValue("gainParams", key); }
    double limit(const std::string& key) { return parameters_.GetAutotuneLimitValue("Limits", key); }
    double preamp_ramp_end(const std::string& key, bool low_gain);
    double sheath_gas(const std::string& key, std::int32_t fallback_setpoint);
    double transients();

    const Trace& trace_;
    const LazyInstrument& instrument_;
    const CurrentSetpoints& setpoints_;
    clsTuneParamsXML& parameters_;
    SourceAndPolarity& source_;
    MassCalibration& calibration_;
    MassRange& mass_range_;
};

}  // namespace korvane
