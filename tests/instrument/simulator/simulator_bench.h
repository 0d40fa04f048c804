// A simulator on a disk in memory and a clock that does not wait.
#pragma once

#include "instrument/simulator/simulator.h"
#include "platform/automation_arithmetic.h"
#include "support/memory_disk.h"
#include "support/raised.h"
#include "support/spread.h"
#include "support/virtual_clock.h"

namespace korvane {

struct SimulatorBench {
    /// An empty scene text is the default scene; `seed` and the state file carry over to the next one when given.
    explicit SimulatorBench(const std::string& scene = "", std::uint64_t seed = 1,
                            std::shared_ptr<MemoryDisk> shared_disk = std::make_shared<MemoryDisk>())
        : disk(std::move(shared_disk)) {
        options.base_folder = "/base";
        options.seed = seed;
        options.state_path = "/base/state.json";
        disk->put("/base/Logfiles/present.txt", "");
        if (!scene.empty()) {
            disk->put("/base/scene.json", scene);
            options.scene_path = "/base/scene.json";
        }
        layer = make_simulator(options, disk, clock);
        globals = layer->create_globals();
    }

    AcquiredSpectrum acquire() {
        AcquiredSpectrum spectrum;
        globals->control()->GetNextSpectrum(spectrum);
        return spectrum;
    }
    void set(const std::string& name, double value) {
        auto& table = globals->setpoints();
        table.write(table.index_of(name), 0, 0, value);
    }
    double get(const std::string& name) {
        auto& table = globals->setpoints();
        return to_double(table.value(table.index_of(name), 0, 0));
    }
    /// Value of a metadata item by its name; NaN where there is none.
    double metadata(const std::string& name) {
        for (const MetaItem& item : globals->control()->next_spectrum_metadata())
            if (item.name == name) return to_double(item.value);
        return std::nan("");
    }

    std::shared_ptr<MemoryDisk> disk;
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    SimulatorOptions options;
    std::shared_ptr<InstrumentLayer> layer;
    std::unique_ptr<InstrumentGlobals> globals;
};

}  // namespace korvane
