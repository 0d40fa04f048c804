// The names that there are: for completion, and for what was probably meant by one that there is not.
#pragma once

#include <string>
#include <vector>

#include "korvane/instrument.h"
#include "session.h"

namespace korvane::program {

inline constexpr const char* autotune_tree = "AutotuneParameters";

enum class SetpointNames { internal, internal_and_external };
std::vector<std::string> setpoint_names(Session& session, SetpointNames which);
/// Groups of a tree of the tune parameters, and the keys of a group. Errors as `list_tune_parameters`; so below.
std::vector<std::string> parameter_groups(Session& session, const std::string& tree);
std::vector<std::string> parameter_keys(Session& session, const std::string& tree, const std::string& group);
std::vector<std::string> preference_names(Session& session);
/// "CLASS.MEMBER" of the automation classes.
std::vector<std::string> member_names();

}  // namespace korvane::program
