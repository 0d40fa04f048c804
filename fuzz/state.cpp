#include "fuzz/targets.h"
#include "instrument/simulator/scene.h"

namespace korvane::fuzz {

void state(std::string_view input) {
    passes([&] { simulation::parse_state(input, "state"); });
    passes([&] { simulation::parse_scene(input, "scene"); });
}

}  // namespace korvane::fuzz
