#include "layer/test_layer.h"

#include <cstdlib>

#include "instrument/simulator/simulator.h"
#include "platform/files.h"

namespace korvane {

namespace {

class TitledGlobals final : public InstrumentGlobals {
public:
    explicit TitledGlobals(std::unique_ptr<InstrumentGlobals> globals) : globals_(std::move(globals)) {}

    void initialise() override { globals_->initialise(); }
    void refresh() override { globals_->refresh(); }
    SetpointTable& setpoints() override { return globals_->setpoints(); }
    CalibrationStore& calibrations() override { return globals_->calibrations(); }
    HardwareQueries& hardware() override { return globals_->hardware(); }
    FirmwareChannels& firmware() override { return globals_->firmware(); }
    InstrumentControl* control() override { return globals_->control(); }
    InstrumentValue dictionary_item(const std::string& name) override { return globals_->dictionary_item(name); }
    std::string parameter_name(std::int32_t index) override { return globals_->parameter_name(index); }
    InstrumentValue actual_value(const std::string& path, const std::string& type) override {
        return globals_->actual_value(path, type);
    }
    double sampling_interval_seconds() override { return globals_->sampling_interval_seconds(); }
    std::string source_type() override { return globals_->source_type(); }
    std::string source_word() override { return globals_->source_word(); }
    std::string time_stamp() override { return globals_->time_stamp(); }
    std::string title() override { return test_layer_title; }

private:
    std::unique_ptr<InstrumentGlobals> globals_;
};

}  // namespace

TestLayer::TestLayer() {
    const char* const base = std::getenv("KORVANE_TEST_LAYER_BASE");
    if (!base) throw Error(error_number::file_or_element, "TestLayer", "KORVANE_TEST_LAYER_BASE is not set");
    simulator_ = make_simulator({.base_folder = base, .seed = 1, .scene_path = {}, .state_path = {}},
                                make_system_files(), make_system_clock());
}

std::unique_ptr<InstrumentGlobals> TestLayer::create_globals() {
    return std::make_unique<TitledGlobals>(simulator_->create_globals());
}

}  // namespace korvane
