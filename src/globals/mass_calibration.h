// The mass calibration: units of its coefficients, defaults, and its exchange with the instrument.
#pragma once

#include "frame/routine.h"
#include "globals/current_setpoints.h"
#include "korvane/mass_time.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"

namespace korvane {

class MassCalibration {
public:
    MassCalibration(const Trace& trace, const LazyInstrument& instrument, const CurrentSetpoints& setpoints,
                    clsTunePrefsXML& preferences, clsTuneParamsXML& parameters)
        : trace_(trace),
          instrument_(instrument),
          setpoints_(setpoints),
          preferences_(preferences),
          parameters_(parameters) {}

    CalibrationCoefficients to_ns(const CalibrationCoefficients& microseconds);
    CalibrationCoefficients convert(const CalibrationCoefficients& coefficients, bool to_ns);
    CalibrationObject current();
    double default_a_ns();
    CalibrationCoefficients default_coefficients_ns();
    CalibrationObject default_object_ns();
    void store(const CalibrationObject& calibration);
    void set_a_and_t0_us(double a, double t0);

private:
    CalibrationObject of_current_polarity();
    double default_b_ns();
    bool use_override_values();
    void convert_terms(TraceObj& record, CalibrationCoefficients& coefficients, bool to_ns);

    const Trace& trace_;
    const LazyInstrument& instrument_;
    const CurrentSetpoints& setpoints_;
    clsTunePrefsXML& preferences_;
    clsTuneParamsXML& parameters_;
};

}  // namespace korvane
