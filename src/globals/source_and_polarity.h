// What depends on the ion source, the polarity and the sampling rate.
#pragma once

#include <string>

#include "frame/routine.h"
#include "globals/current_setpoints.h"
#include "korvane/enumerations.h"
#include "korvane/tune_params_xml.h"

namespace korvane {

class SourceAndPolarity {
public:
    SourceAndPolarity(const Trace& trace, const LazyInstrument& instrument, const CurrentSetpoints& setpoints,
                      clsTuneParamsXML& parameters)
        : trace_(trace), instrument_(instrument), setpoints_(setpoints), parameters_(parameters) {}

    std::string polarity();               ///< "Positive" or "Negative"
    std::string polarity_abbreviation();  ///< "pos" or "neg"
    PolaritySetpoint polarity_setpoint();
    std::int32_t corona_setpoint();
    std::string source();
    std::string mass_list_type(const std::string& source_type);
    std::int32_t vaporizer_setpoint();
    std::int32_t capillary_voltage_setpoint();
    std::int32_t transients_setpoint();
    enumQuadType quadrupole_type();
    /// Sampling rate, gain mode and mass range in words.
    std::string instrument_state();

private:
    std::string rate_text(std::int32_t rate);
    std::string gain_text(std::string rate_text);
    std::string mass_range_text(std::int32_t rate);

    const Trace& trace_;
    const LazyInstrument& instrument_;
    const CurrentSetpoints& setpoints_;
    clsTuneParamsXML& parameters_;
};

}  // namespace korvane
