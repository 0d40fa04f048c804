// Numbers under which late binding itself raises errors; scripts know them.
#pragma once

#include <cstdint>

namespace korvane::automation {

inline constexpr std::int32_t array_locked = 10;
inline constexpr std::int32_t invalid_use_of_null = 94;
inline constexpr std::int32_t object_required = 424;
inline constexpr std::int32_t cannot_create = 429;
inline constexpr std::int32_t no_such_member = 438;
inline constexpr std::int32_t no_such_argument = 448;
inline constexpr std::int32_t argument_not_optional = 449;
inline constexpr std::int32_t too_many_arguments = 450;

}  // namespace korvane::automation
