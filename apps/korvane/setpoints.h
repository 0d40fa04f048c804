// Setpoints as the command line names them: by index or by internal name.
#pragma once

#include <string>

#include "session.h"

namespace korvane::program {

struct SetpointDescription {
    std::int32_t index = 0;
    std::string internal_name, external_name;
    double value = 0, lower = 0, upper = 0, resolution = 0;
    std::string type;  ///< "double", "int32", "int16", or "type <code>"
};

/// The setpoint that `text` means; a usage error when the instrument has none such.
std::int32_t setpoint_index(Session& session, const std::string& text);
SetpointDescription describe_setpoint(Session& session, std::int32_t index);
Json setpoint_json(const SetpointDescription& setpoint);
/// A usage error naming setpoint and limits when `value` lies outside them.
void require_within_limits(const SetpointDescription& setpoint, double value);

}  // namespace korvane::program
