// An instrument layer from outside, for tests: the simulator on the base folder that KORVANE_TEST_LAYER_BASE names,
// with a title of its own.
#pragma once

#include "korvane/forwarding.h"

namespace korvane {

inline constexpr const char* test_layer_title = "Layer from outside";

class TestLayer final : public ForwardingInstrumentLayer {
public:
    TestLayer();

    std::unique_ptr<InstrumentGlobals> create_globals() override;
};

}  // namespace korvane
