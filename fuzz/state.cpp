#include <string>

#include "fuzz/targets.h"
#include "instrument/simulator/scene.h"
#include "korvane/error.h"

namespace korvane::fuzz {

void state(std::string_view input) {
    try {
        simulation::parse_state(input, "state");
    } catch (const Error&) {
        // A refusal is an answer.
    }
    try {
        simulation::parse_scene(input, "scene");
    } catch (const Error&) {
        // A refusal is an answer.
    }
}

}  // namespace korvane::fuzz
