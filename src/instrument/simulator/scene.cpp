#include "instrument/simulator/scene.h"

namespace korvane::simulation {

namespace {

// Clusters of sodium trifluoroacetate: Na+(CF3COONa)n and CF3COO-(CF3COONa)n.
std::vector<SceneIon> default_ions() {
    constexpr std::array<double, 10> ions{6000, 8000, 10000, 9000, 8000, 6500, 5000, 3500, 2400, 1600};
    std::vector<SceneIon> all;
    for (const bool positive : {true, false})
        for (std::size_t i = 0; i < ions.size(); ++i) {
            const std::size_t units = positive ? (i == 0 ? 1 : 2 * i) : (i == 0 ? 0 : 2 * i - 1);
            const std::string clusters = units == 0 ? "" : "(CF3COONa)" + std::to_string(units);
            all.push_back({(positive ? "Na" : "CF3COO") + clusters, {}, positive ? 1 : -1, ions[i], true});
        }
    return all;
}

}  // namespace

Scene default_scene() {
    Scene scene;
    scene.sample.ions = default_ions();
    scene.responses = default_responses();
    scene.slicer.resize(slicer_position_count);
    for (std::size_t i = 5; i < scene.slicer.size(); ++i) scene.slicer[i].high_resolution = true;
    return scene;
}

}  // namespace korvane::simulation
