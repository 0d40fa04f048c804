// The setpoint table as it stands for the current segments.
#pragma once

#include <cstdint>

#include "frame/lazy_instrument.h"
#include "korvane/instrument.h"
#include "korvane/instrument_contract.h"
#include "platform/automation_arithmetic.h"
#include "platform/text.h"

namespace korvane {

/// Time and scan segment that every setpoint access names.
struct Segments {
    std::int32_t time = 0, scan = 0;
};

class CurrentSetpoints {
public:
    CurrentSetpoints(const LazyInstrument& instrument, const Segments& segments)
        : instrument_(instrument), segments_(segments) {}

    SetpointTable& table() const { return instrument_->setpoints(); }
    double value(std::int32_t index) const { return to_double(table().value(index, segments_.time, segments_.scan)); }
    std::int32_t code(std::int32_t index) const {
        return to_int32(table().value(index, segments_.time, segments_.scan));
    }
    void write(std::int32_t index, const SetpointValue& value) const {
        table().write(index, segments_.time, segments_.scan, value);
    }
    bool is_positive() const { return value(contract::setpoint.polarity) == 0; }
    /// As the calibrations are kept.
    std::int32_t polarity() const { return is_positive() ? contract::polarity.positive : contract::polarity.negative; }
    /// What the instrument lends for the polarity of now; error 91 when that is nothing.
    CalibrationObject calibration() const {
        const std::int32_t now = polarity();
        CalibrationObject calibration = instrument_->calibrations().calibration(now);
        if (!calibration) raise_runtime_fault(error_number::object_not_set, "calibration of polarity ", now);
        return calibration;
    }

private:
    const LazyInstrument& instrument_;
    const Segments& segments_;
};

}  // namespace korvane
