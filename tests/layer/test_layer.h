// An instrument layer from outside, for tests: the simulator on the base folder that KORVANE_TEST_LAYER_BASE names,
// with a title of its own.
#pragma once

#include <cstdlib>

#include "instrument/simulator/simulator.h"
#include "korvane/forwarding.h"

namespace korvane {

class TestLayer final : public ForwardingInstrumentLayer {
public:
    TestLayer() : ForwardingInstrumentLayer(simulator()) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override {
        return std::make_unique<TitledGlobals>(ForwardingInstrumentLayer::create_globals());
    }

private:
    struct TitledGlobals final : ForwardingInstrumentGlobals {
        using ForwardingInstrumentGlobals::ForwardingInstrumentGlobals;
        std::string title() override {
            if (std::getenv("KORVANE_TEST_LAYER_CRASHES")) std::abort();
            return "Layer from outside";
        }
    };

    static std::shared_ptr<InstrumentLayer> simulator() {
        const char* const base = std::getenv("KORVANE_TEST_LAYER_BASE");
        if (!base) throw Error(error_number::file_or_element, "TestLayer", "KORVANE_TEST_LAYER_BASE is not set");
        if (std::string(base) == "throw") throw 42;
        return make_simulator({.base_folder = base, .seed = 1, .scene_path = {}, .state_path = {}}, make_system_files(),
                              make_system_clock());
    }
};

}  // namespace korvane
