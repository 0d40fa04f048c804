#include "automation/enumerations.h"

#include "korvane/autotune_status.h"
#include "korvane/enumerations.h"
#include "korvane/records.h"

namespace korvane::automation {

namespace {

#define KORVANE_ENUMERATOR(name, value) Enumerator{#name, value},
constexpr Enumerator peak_info_units[]{KORVANE_ENUM_PEAK_INFO_UNITS_MEMBERS(KORVANE_ENUMERATOR)};
constexpr Enumerator modification_codes[]{KORVANE_SETPOINT_MODIFICATION_RETURN_CODES_MEMBERS(KORVANE_ENUMERATOR)};
constexpr Enumerator mass_ranges[]{KORVANE_MASS_RANGE_COMBO_BOX_SELECTION_MEMBERS(KORVANE_ENUMERATOR)};
constexpr Enumerator autotune_status[]{KORVANE_AUTOTUNE_STATUS_MEMBERS(KORVANE_ENUMERATOR)};
constexpr Enumerator quad_types[]{KORVANE_ENUM_QUAD_TYPE_MEMBERS(KORVANE_ENUMERATOR)};
constexpr Enumerator status_ids[]{KORVANE_STATUS_ID_MEMBERS(KORVANE_ENUMERATOR)};
constexpr Enumerator autotune_polarities[]{KORVANE_AUTOTUNE_POLARITY_MEMBERS(KORVANE_ENUMERATOR)};
constexpr Enumerator autoaborts[]{KORVANE_AUTOABORT_MEMBERS(KORVANE_ENUMERATOR)};
constexpr Enumerator sampling_rates[]{KORVANE_SAMPLING_RATE_ID_MEMBERS(KORVANE_ENUMERATOR)};
#undef KORVANE_ENUMERATOR

// These two have short native names; in a type library enumerators share one scope with everything else.
#define KORVANE_ENUMERATOR(name)                                             \
    Enumerator {                                                             \
        "PeakCalcType_" #name, static_cast<std::int32_t>(PeakCalcType::name) \
    }
constexpr Enumerator peak_calc_types[]{KORVANE_ENUMERATOR(TimeCentroid), KORVANE_ENUMERATOR(MassCentroid),
                                       KORVANE_ENUMERATOR(Resolution),   KORVANE_ENUMERATOR(Width),
                                       KORVANE_ENUMERATOR(Height),       KORVANE_ENUMERATOR(Area)};
#undef KORVANE_ENUMERATOR
#define KORVANE_ENUMERATOR(name)                                                     \
    Enumerator {                                                                     \
        "PolaritySetpoint_" #name, static_cast<std::int32_t>(PolaritySetpoint::name) \
    }
constexpr Enumerator polarity_setpoints[]{KORVANE_ENUMERATOR(Positive), KORVANE_ENUMERATOR(Negative)};
#undef KORVANE_ENUMERATOR

constexpr EnumerationDescription descriptions[]{
    {"enumPeakInfoUnits", peak_info_units},
    {"SetpointModificationReturnCodes", modification_codes},
    {"MassRangeComboBoxSelection", mass_ranges},
    {"AUTOTUNE_STATUS", autotune_status},
    {"enumQuadType", quad_types},
    {"statusID", status_ids},
    {"AutotunePolarity", autotune_polarities},
    {"AUTOABORT", autoaborts},
    {"SamplingRateId", sampling_rates},
    {"PeakCalcType", peak_calc_types},
    {"PolaritySetpoint", polarity_setpoints},
};

}  // namespace

std::span<const EnumerationDescription> enumeration_descriptions() {
    return descriptions;
}

}  // namespace korvane::automation
