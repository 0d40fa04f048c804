// Without Windows there are no automation objects of the system.
#ifndef _WIN32

#include "korvane/automation.h"

namespace korvane::automation {

void use_system_objects() {}

}  // namespace korvane::automation

#endif
