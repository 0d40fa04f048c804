// The world of the tests of the tune globals.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "korvane/embedded_parts.h"
#include "korvane/tune_globals.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {

class TuneGlobalsTest : public ::testing::Test {
protected:
    TuneGlobals globals() {
        TuneGlobals made(test.platform());
        test.trace().lines.clear();
        test.instrument().calls = 0;
        return made;
    }
    ScriptedSetpoint& setpoint(std::int32_t index, double value, const std::string& name = {}) {
        ScriptedSetpoint& made = test.instrument().setpoints[index];
        made.value = value;
        if (!name.empty()) made.name = name;
        return made;
    }

    TestPlatform test;
};

inline const std::string user_aborted = "1|TuneGlobals|User aborted";
inline const std::string run_state = "REG[ACTUAL].OBJ[1].NDR[RUNSTATE]";

}  // namespace korvane
