// An error, an abort or an instrument that stops to answer, from every single instrument call on: where the setpoints
// end then.
#include <gtest/gtest.h>

#include <algorithm>

#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

constexpr int lens = SpectrumWorld::adjustable_setpoint, transients = SpectrumWorld::transients_setpoint;
constexpr int scintillator = 69, averaging = 162, slicer = 170;
constexpr double lens_before = 70, lens_after = 60, scintillator_before = 5, transients_before = 10000;

/// What is wrong from the n-th instrument call on, or at it.
enum class Trouble { fault_once, fault_for_good, abort, wrong_polarity, silence };

/// Setpoints that an operation may move.
enum class Moves { lens_value, slicer_position, scintillator_value, search_values };

struct Operation {
    std::string name;
    Moves moves;
    std::function<void(SpectrumParser&, TuneGlobals&)> run;
    bool averages = false;
    /// The search goes to the firmware instead of to the setpoint.
    bool fast = false;
};

void search(SpectrumParser& parser, bool fast, double target) {
    parser.set_fast_search(fast);
    parser.BinaryAdjustAbundanceDownUsingThisSetpoint(lens, 900, target, 30, true, 0, 100, 20);
}

const std::vector<Operation>& operations() {
    // At 10000 x a tenth of the transients the peak of 5000 is within the tolerance of 100; of 90000 it is not.
    constexpr double reached = 50000, never_reached = 90000;
    static const std::vector<Operation> all{
        {"set", Moves::lens_value, [](auto&, auto& globals) { globals.SetMSSetpointValueByIdx(lens, lens_after); }},
        {"set by name", Moves::lens_value,
         [](auto&, auto& globals) { globals.SetMSSetpointValueByInternalName("Lens", lens_after); }},
        {"set by difference and wait", Moves::lens_value,
         [](auto&, auto& globals) {
             globals.SetMSSetpointValueByIdx(lens, setpoint_value_not_given, lens_after - lens_before, 3);
         }},
        {"set and wait until seen", Moves::lens_value,
         [](auto&, auto& globals) { globals.SetMSSetpointValueByIdx(lens, lens_after, 0, 0, true); }},
        {"seek a clean slicer position", Moves::slicer_position,
         [](auto&, auto& globals) { globals.SeekNextAvailableCleanSlicerPosForTune(); }},
        {"measure", Moves::scintillator_value, [](auto& parser, auto&) { parser.GetPeakInfoForCalibrantMasses(); }},
        {"lists", Moves::scintillator_value, [](auto& parser, auto&) { parser.GetPeakListsForCalibrantMasses(); }},
        {"verify", Moves::scintillator_value,
         [](auto& parser, auto&) { parser.VerifyInstrumentIsShowingValidCalibrantSpectrum(); }},
        {"dual gain", Moves::scintillator_value,
         [](auto& parser, auto&) {
             parser.AbundancesAreBelowDualGainThreshold(std::vector<double>{100, 400, 900, 1600, 2500});
         }},
        {"one peak", Moves::scintillator_value,
         [](auto& parser, auto&) { parser.GetPeakAttribute(PeakCalcType::Height, 900, 0.2, true); }},
        {"search to the resolution", Moves::search_values,
         [](auto& parser, auto&) { search(parser, false, never_reached); }},
        {"search within tolerance", Moves::search_values, [](auto& parser, auto&) { search(parser, false, reached); }},
        {"averaging search", Moves::search_values, [](auto& parser, auto&) { search(parser, false, never_reached); },
         true},
        {"fast search to the resolution", Moves::search_values,
         [](auto& parser, auto&) { search(parser, true, never_reached); }, false, true},
        {"fast search within tolerance", Moves::search_values,
         [](auto& parser, auto&) { search(parser, true, reached); }, false, true},
    };
    return all;
}

class Ends {
public:
    explicit Ends(const Operation& chosen) : operation_(chosen) {
        world_.test.trace().on = false;
        world_.test.limit("Calibration", "BinarySearchAbTolerance", "2000");
        world_.test.limit("Limits", "InitTOFTune_MaxRunTimeOnSlicerPos_hrs", "100");
        world_.test.preference("SlicerLifeTime_SimulateOverLimit", "No");
        world_.test.raw_parameters(
            "<TOF><ManualTuneParameters><IndexedSlicer><NumberOfPositions>6</NumberOfPositions>"
            "<HighResolutionFirstPosition>4</HighResolutionFirstPosition></IndexedSlicer></ManualTuneParameters></"
            "TOF>");
        instrument().setpoints[slicer].type = 3;
        instrument().setpoints[slicer].name = "SlicerPosition";
        instrument().setpoints[transients].lower = 0;
        instrument().setpoints[averaging].value = operation_.averages;
        for (int position = 1; position <= 6; ++position)
            instrument().dictionary["SlicerPos[" + std::to_string(position) + "].Hours"] = 0.0;
        instrument().firmware[22] = 0;
        instrument().acquire = [this](AcquiredSpectrum& spectrum, int) { acquire(spectrum); };
        instrument().metadata_items = [this] { return metadata(); };
    }

    /// Runs the operation with trouble at its n-th instrument call; false once it has fewer calls than that.
    bool run_through(Trouble trouble, int at) {
        begin(trouble, at);
        const Error error = error_of([&] { operation_.run(parser_, globals_); });
        const bool reached = instrument().calls >= at;
        instrument().fault_at.reset();
        expect_explained(error, trouble, reached);
        expect_setpoints(error.number() == 0, reached);
        return reached;
    }

private:
    ScriptedState& instrument() { return world_.instrument(); }

    void begin(Trouble trouble, int at) {
        world_.test.preference("AbortFlag", "0");
        instrument().setpoints[lens].value = lens_before;
        instrument().setpoints[scintillator].value = scintillator_before;
        instrument().setpoints[transients].value = transients_before;
        instrument().setpoints[slicer].value = 1;
        instrument().journal.clear();
        instrument().calls = 0;
        trouble_ = false;
        instrument().fault_stays = trouble == Trouble::fault_for_good;
        if (trouble == Trouble::fault_once || trouble == Trouble::fault_for_good) instrument().fault_at = at;
        instrument().on_call = [this, trouble, at](int call) {
            if (call != at) return;
            if (trouble == Trouble::abort) world_.request_abort();
            trouble_ = true;
        };
        silent_ = trouble == Trouble::silence;
        strange_ = silent_ || trouble == Trouble::wrong_polarity;
        before_ = values();
    }

    void acquire(AcquiredSpectrum& spectrum) {
        world_.test.clock->advance(4);
        if (trouble_ && silent_) return;
        world_.fill(spectrum);
        const std::int32_t polarity = trouble_ && strange_ ? 1 : 0;
        spectrum.meta_data = VariantArray<InstrumentValue>(std::vector<InstrumentValue>{1, polarity, 0});
    }
    std::vector<MetaItem> metadata() {
        world_.test.clock->advance(4);
        std::vector<MetaItem> items;
        if (trouble_ && strange_) return items;
        for (const auto& [index, setpoint] : instrument().setpoints) items.push_back({setpoint.name, setpoint.value});
        return items;
    }

    std::map<int, double> values() {
        std::map<int, double> all;
        for (const auto& [index, setpoint] : instrument().setpoints) all[index] = setpoint.value;
        return all;
    }
    /// The values written to a setpoint, in order.
    std::vector<double> written(int index) {
        const std::string start = "write " + std::to_string(index) + " = ";
        std::vector<double> all;
        for (const std::string& line : instrument().journal)
            if (line.starts_with(start)) all.push_back(std::stod(line.substr(start.size())));
        return all;
    }

    void expect_explained(const Error& error, Trouble trouble, bool reached) {
        if (!reached) {
            EXPECT_EQ(error.number(), 0) << error.description();
            return;
        }
        const bool faulty = trouble == Trouble::fault_once || trouble == Trouble::fault_for_good;
        // A wait for a value tells every failure inside it as a value that was not reached.
        if (error.number() == error_number::setpoint_not_reached) {
            EXPECT_NE(error.description().find("did not reach expected value["), std::string::npos);
            EXPECT_NE(trouble, Trouble::abort);
            return;
        }
        if (faulty) {
            if (error.number() == 0) {
                EXPECT_TRUE(is_excused()) << "the fault is lost";
                return;
            }
            EXPECT_EQ(error.number(), -4711) << error.description();
            EXPECT_EQ(error.source(), "Instrument");
            EXPECT_EQ(error.description(), "scripted fault");
        } else if (trouble == Trouble::abort) {
            EXPECT_TRUE(error.number() == 0 || error.number() == error_number::user_aborted) << error.number();
            if (error.number()) {
                EXPECT_EQ(error.description(), "User aborted");
            }
        } else {
            const std::int32_t number = error.number();
            // A single-mass peak does not wait for a populated spectrum: it fails on an array that is not there.
            const bool time_out = number == 0 || number == 5 || number == error_number::polarity_timeout ||
                                  (silent_ && number == error_number::type_mismatch);
            EXPECT_TRUE(time_out) << number << " " << error.description();
        }
    }

    /// A search that came within the tolerance stops before it looks at what its measurements collected. A measurement
    /// that failed leaves the scintillator out of the way, and a later one finds it so.
    bool is_excused() const {
        return operation_.moves == Moves::search_values &&
               parser_.last_adjustment().end == AdjustOutcome::End::within_tolerance;
    }

    void expect_setpoints(bool success, bool in_trouble) {
        const auto now = values();
        for (const auto& [index, value] : now) {
            const std::vector<double> writes = written(index);
            EXPECT_EQ(value, writes.empty() ? before_.at(index) : writes.back()) << "setpoint " << index;
            EXPECT_TRUE(writes.empty() || may_move(index)) << "setpoint " << index << " was written";
        }
        if (operation_.moves == Moves::lens_value || operation_.moves == Moves::slicer_position)
            expect_one_change(success);
        else
            expect_scintillator(success && !(in_trouble && is_excused()));
        if (operation_.moves == Moves::search_values) expect_search(success);
    }
    bool may_move(int index) const {
        switch (operation_.moves) {
            case Moves::lens_value:
                return index == lens;
            case Moves::slicer_position:
                return index == slicer;
            case Moves::scintillator_value:
                return index == scintillator;
            default:
                return index == scintillator || index == transients || (index == lens && !operation_.fast);
        }
    }
    void expect_one_change(bool success) {
        const bool is_lens = operation_.moves == Moves::lens_value;
        const std::vector<double> change{is_lens ? lens_after : 2};
        const std::vector<double> writes = written(is_lens ? lens : slicer);
        EXPECT_TRUE(writes == change || (!success && writes.empty()));
    }
    /// Out of the way and back, again and again; an error leaves it out of the way.
    void expect_scintillator(bool success) {
        const std::vector<double> writes = written(scintillator);
        for (std::size_t i = 0; i < writes.size(); ++i) EXPECT_EQ(writes[i], i % 2 ? scintillator_before : 0);
        if (success) {
            EXPECT_EQ(instrument().setpoints[scintillator].value, scintillator_before);
        }
    }
    void expect_search(bool success) {
        const std::vector<double> writes = written(transients);
        const std::vector<double> there{transients_before / 10},
            there_and_back{transients_before / 10, transients_before};
        EXPECT_TRUE(writes.empty() || writes == there || writes == there_and_back);
        EXPECT_TRUE(!success || writes == there_and_back) << "the number of transients is not restored";
        const auto& probes = parser_.last_adjustment().probes;
        if (success && !operation_.fast && !probes.empty()) {
            EXPECT_EQ(instrument().setpoints[lens].value, probes.back().value);
        }
    }

    const Operation& operation_;
    SpectrumWorld world_;
    SpectrumParser parser_{world_.platform()};
    TuneGlobals globals_{world_.platform()};
    std::map<int, double> before_;
    bool trouble_ = false, silent_ = false, strange_ = false;
};

class SetpointEnds : public testing::TestWithParam<Operation> {};

TEST_P(SetpointEnds, AreThePromisedOnesWhateverHappensAtAnyInstrumentCall) {
    const std::pair<const char*, Trouble> troubles[] = {{"fault once", Trouble::fault_once},
                                                        {"fault for good", Trouble::fault_for_good},
                                                        {"abort", Trouble::abort},
                                                        {"wrong polarity", Trouble::wrong_polarity},
                                                        {"silence", Trouble::silence}};
    Ends ends(GetParam());
    for (const auto& [name, trouble] : troubles) {
        int at = 1;
        for (bool more = true; more; ++at) {
            SCOPED_TRACE(std::string(name) + " at call " + std::to_string(at));
            more = ends.run_through(trouble, at);
            ASSERT_LT(at, 3000);
            if (testing::Test::HasFailure()) return;
        }
        EXPECT_GT(at, 4) << "the operation asks the instrument for next to nothing";
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, SetpointEnds, testing::ValuesIn(operations()), [](const auto& chosen) {
    std::string name = chosen.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

}  // namespace
}  // namespace korvane
