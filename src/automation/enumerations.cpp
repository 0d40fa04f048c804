#include "automation/type_library.h"

#include <array>
#include <utility>

#include "automation/type_names.h"
#include "korvane/autotune_status.h"
#include "korvane/enumerations.h"
#include "korvane/records.h"
#include "korvane/status_id.h"

namespace korvane::automation {

namespace {

/// The enumerators with values from `least` to `least` + `count` - 1. The compiler writes a value that has none as
/// "(korvane::statusID)70".
template <class E, std::int32_t least = 0, std::int32_t count = 100>
EnumerationDescription describe(const std::string& prefix = {}) {
    std::string_view text = []<std::int32_t... step>(std::integer_sequence<std::int32_t, step...>) {
        return detail::text_of_values<static_cast<E>(least + step)...>();
    }
    (std::make_integer_sequence<std::int32_t, count>());
    text.remove_prefix(text.find_first_of("{<", text.find('=')) + 1);
    EnumerationDescription description{type_name<E>, {}};
    for (std::int32_t value = least; value < least + count; ++value) {
        const std::string_view known = text.substr(0, text.find_first_of(",}>"));
        if (!known.starts_with('('))
            description.members.push_back({prefix + std::string(known.substr(known.rfind("::") + 2)), value});
        text.remove_prefix(known.size() + 2);
    }
    return description;
}

}  // namespace

std::span<const EnumerationDescription> enumeration_descriptions() {
    // Enumerators share one scope with everything else in a type library: short names get their enumeration's before.
    static const std::array descriptions{
        describe<enumPeakInfoUnits>(),
        describe<SetpointModificationReturnCodes>(),
        describe<MassRangeComboBoxSelection>(),
        describe<AUTOTUNE_STATUS, -1000, 1200>(),
        describe<enumQuadType>(),
        describe<statusID>(),
        describe<AutotunePolarity>(),
        describe<AUTOABORT>(),
        describe<SamplingRateId>(),
        describe<PeakCalcType>("PeakCalcType_"),
        describe<PolaritySetpoint>("PolaritySetpoint_"),
    };
    return descriptions;
}

}  // namespace korvane::automation
