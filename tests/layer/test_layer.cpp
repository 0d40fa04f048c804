#include "layer/test_layer.h"

#include <cstdlib>

#include "instrument/simulator/simulator.h"

namespace korvane {

namespace {

struct TitledGlobals final : ForwardingInstrumentGlobals {
    using ForwardingInstrumentGlobals::ForwardingInstrumentGlobals;
    std::string title() override {
        if (std::getenv("KORVANE_TEST_LAYER_CRASHES")) std::abort();
        return test_layer_title;
    }
};

std::shared_ptr<InstrumentLayer> simulator() {
    const char* const base = std::getenv("KORVANE_TEST_LAYER_BASE");
    if (!base) throw Error(error_number::file_or_element, "TestLayer", "KORVANE_TEST_LAYER_BASE is not set");
    if (std::string(base) == "throw") throw 42;
    return make_simulator({.base_folder = base, .seed = 1, .scene_path = {}, .state_path = {}}, make_system_files(),
                          make_system_clock());
}

}  // namespace

TestLayer::TestLayer() : ForwardingInstrumentLayer(simulator()) {}

std::unique_ptr<InstrumentGlobals> TestLayer::create_globals() {
    return std::make_unique<TitledGlobals>(ForwardingInstrumentLayer::create_globals());
}

}  // namespace korvane
