// The world of the tests of the tune globals.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "instrument/masstime/square_law_calibration.h"
#include "korvane/tune_globals.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {

using Lines = std::vector<std::string>;

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
    void abort_after_events(int polls) {
        test.clock->on_events = [this, polls, seen = 0]() mutable {
            if (++seen == polls) test.preference("AbortFlag", "1");
        };
    }
    /// The trace without the abort polls and openings inside other routines.
    Lines own_trace() const {
        Lines lines;
        int hidden = 0;
        for (const std::string& line : test.tracers->record->lines) {
            const bool poll = line.ends_with(" UserHasClickedAbort") || line.ends_with(" GetTunePreference") ||
                              line.ends_with(" GetTuneParamByXMLPath") || line.ends_with(" OpenTuneParamsXML");
            if (poll) hidden += line.front() == '>' ? 1 : -1;
            if (!poll && hidden == 0) lines.push_back(line);
        }
        return lines;
    }
    void expect_balanced_trace() const {
        const Lines& lines = test.tracers->record->lines;
        const auto count = [&](char c) {
            return std::count_if(lines.begin(), lines.end(), [&](const auto& line) { return line.front() == c; });
        };
        EXPECT_EQ(count('>'), count('<'));
    }

    TestPlatform test;
};

inline const std::string user_aborted = "1|TuneGlobals|User aborted";
inline const std::string run_state = "REG[ACTUAL].OBJ[1].NDR[RUNSTATE]";

}  // namespace korvane
