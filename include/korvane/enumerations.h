// The small shared enumerations.
#pragma once

#include <cstdint>

namespace korvane {

/// Unit of positions and widths in a peak record.
enum class enumPeakInfoUnits : std::int32_t { ns = 0, amu = 1 };

/// How a change of a setpoint ended.
enum class SetpointModificationReturnCodes : std::int32_t {
    Success = 0,
    Timeout = 1,
    UserAborted = 2,
    UnexpectedError = 3
};

/// Mass range.
enum class MassRangeComboBoxSelection : std::int32_t {
    MassRangeComboBoxSelection_Low = 0,
    MassRangeComboBoxSelection_Standard = 1,
    MassRangeComboBoxSelection_High = 2
};

/// Type of the quadrupole by its largest mass, 4000 or 8000 amu.
enum class enumQuadType : std::int32_t { MaxMass4k = 1, MaxMass8k = 2 };

/// Polarities that an autotune goes through.
enum class AutotunePolarity : std::int32_t {
    AutotunePolarity_Positive = 0,
    AutotunePolarity_Negative = 1,
    AutotunePolarity_Both = 2
};

/// The tune that is to be aborted.
enum class AUTOABORT : std::int32_t {
    AUTOABORT_Std = 0,
    AUTOABORT_Init = 1,
    AUTOABORT_PS_Std = 2,
    AUTOABORT_QK = 3,
    AUTOABORT_SetDetGain = 4
};

/// Sampling rate of the digitiser.
enum class SamplingRateId : std::int32_t { SamplingRateId_1GHz = 0, SamplingRateId_2GHz = 1, SamplingRateId_4GHz = 2 };

}  // namespace korvane
