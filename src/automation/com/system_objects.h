// Objects of the acquisition software that the library finds by ProgID.
#pragma once

namespace korvane::automation {

/// From now on tracers and instrument layers may be automation objects. Called once by the server and by the program:
/// the assembly, which asks for them, stands below this room.
void use_system_objects();

}  // namespace korvane::automation
