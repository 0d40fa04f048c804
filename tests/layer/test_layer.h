// An instrument layer from outside, for tests: the simulator on the base folder that KORVANE_TEST_LAYER_BASE names,
// with a title of its own.
#pragma once

#include <memory>

#include "korvane/instrument.h"

namespace korvane {

inline constexpr const char* test_layer_title = "Layer from outside";

class TestLayer final : public InstrumentLayer {
public:
    TestLayer();

    std::unique_ptr<InstrumentGlobals> create_globals() override;
    std::unique_ptr<PathInformation> create_path_information() override {
        return simulator_->create_path_information();
    }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override { return simulator_->create_logbook_entry(); }
    std::unique_ptr<PeakFinder> create_peak_finder() override { return simulator_->create_peak_finder(); }

private:
    std::shared_ptr<InstrumentLayer> simulator_;
};

}  // namespace korvane
