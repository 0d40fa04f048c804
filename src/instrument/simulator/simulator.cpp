#include "instrument/simulator/simulator.h"

#include "instrument/embedded/layer.h"
#include "instrument/simulator/simulated_instrument.h"

namespace korvane {

std::shared_ptr<InstrumentLayer> make_simulator(const SimulatorOptions& options, std::shared_ptr<Files> files,
                                                std::shared_ptr<Clock> clock) {
    using namespace simulation;
    return embedded::make_layer("Simulator", options.base_folder, files, clock, [options, files, clock] {
        const std::string scene = options.scene_path.value_or("default scene");
        return std::make_shared<SimulatedInstrument>(
            options.scene_path ? parse_scene(read_named_file(*files, scene, "scene"), scene) : default_scene(), scene,
            options.seed, StateFile(files, clock, options.state_path), clock);
    });
}

}  // namespace korvane
