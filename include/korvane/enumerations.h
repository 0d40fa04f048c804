// The small shared enumerations. Each is listed once, as a macro over (name, value), so that other faces of the
// library can be derived from the same list.
#pragma once

#include <cstdint>

namespace korvane {

// clang-format off
#define KORVANE_ENUM_PEAK_INFO_UNITS_MEMBERS(X) \
    X(ns, 0) X(amu, 1)

#define KORVANE_SETPOINT_MODIFICATION_RETURN_CODES_MEMBERS(X) \
    X(Success, 0) X(Timeout, 1) X(UserAborted, 2) X(UnexpectedError, 3)

#define KORVANE_MASS_RANGE_COMBO_BOX_SELECTION_MEMBERS(X) \
    X(MassRangeComboBoxSelection_Low, 0) X(MassRangeComboBoxSelection_Standard, 1) \
    X(MassRangeComboBoxSelection_High, 2)

#define KORVANE_ENUM_QUAD_TYPE_MEMBERS(X) \
    X(MaxMass4k, 1) X(MaxMass8k, 2)

#define KORVANE_AUTOTUNE_POLARITY_MEMBERS(X) \
    X(AutotunePolarity_Positive, 0) X(AutotunePolarity_Negative, 1) X(AutotunePolarity_Both, 2)

#define KORVANE_AUTOABORT_MEMBERS(X) \
    X(AUTOABORT_Std, 0) X(AUTOABORT_Init, 1) X(AUTOABORT_PS_Std, 2) X(AUTOABORT_QK, 3) \
    X(AUTOABORT_SetDetGain, 4)

#define KORVANE_SAMPLING_RATE_ID_MEMBERS(X) \
    X(SamplingRateId_1GHz, 0) X(SamplingRateId_2GHz, 1) X(SamplingRateId_4GHz, 2)

// clang-format on

#define KORVANE_ENUMERATOR(name, value) name = (value),
enum class enumPeakInfoUnits : std::int32_t { KORVANE_ENUM_PEAK_INFO_UNITS_MEMBERS(KORVANE_ENUMERATOR) };
enum class SetpointModificationReturnCodes : std::int32_t {
    KORVANE_SETPOINT_MODIFICATION_RETURN_CODES_MEMBERS(KORVANE_ENUMERATOR)
};
enum class MassRangeComboBoxSelection : std::int32_t {
    KORVANE_MASS_RANGE_COMBO_BOX_SELECTION_MEMBERS(KORVANE_ENUMERATOR)
};
enum class enumQuadType : std::int32_t { KORVANE_ENUM_QUAD_TYPE_MEMBERS(KORVANE_ENUMERATOR) };
enum class AutotunePolarity : std::int32_t { KORVANE_AUTOTUNE_POLARITY_MEMBERS(KORVANE_ENUMERATOR) };
enum class AUTOABORT : std::int32_t { KORVANE_AUTOABORT_MEMBERS(KORVANE_ENUMERATOR) };
enum class SamplingRateId : std::int32_t { KORVANE_SAMPLING_RATE_ID_MEMBERS(KORVANE_ENUMERATOR) };
#undef KORVANE_ENUMERATOR

}  // namespace korvane
