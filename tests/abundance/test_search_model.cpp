// Both searches beside a straight model of their steps: what they write and measure, return, log and report.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "abundance/search_world.h"

namespace korvane {
namespace {

using End = AdjustOutcome::End;
using Lines = std::vector<std::string>;
constexpr double not_given = search_value_not_given;

double uniform(std::mt19937& random, double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
}

/// A search on a random instrument. What a spectrum shows depends on its number and on the value applied.
struct Trial {
    explicit Trial(std::mt19937& random, bool is_fast)
        : fast(is_fast), seed(static_cast<unsigned>(random())), index(one_in(random, 8) ? 104 : 50) {
        const double resolutions[] = {not_given, not_given, uniform(random, 0.5, 30), -1, 0};
        resolution = resolutions[one_in(random, 20) ? 3 + random() % 2 : random() % 3];
        if (one_in(random, 10)) high = not_given;
        if (one_in(random, 10)) low = not_given;
        if (one_in(random, 4)) tolerance = 0;
        if (one_in(random, 40)) target = 0;
        if (one_in(random, 10)) resolution = (high - low) / 2;
        lower_reduces = !one_in(random, 4);
        averaging = one_in(random, 4);
        transients = 5000 + static_cast<int>(random() % 5000);
        speed_up = std::floor(uniform(random, 1, 12));
        low = low == not_given ? low : std::floor(uniform(random, 0, 40));
        entry = uniform(random, 0, 100);
        target = target == 0 ? 0 : uniform(random, 5e4, 1e6);
        tolerance = tolerance == 0 ? 0 : uniform(random, 0, 4e6);
        trouble = one_in(random, 3) ? 0.08 : 0;
        steepness = uniform(random, 0.3, 3);
    }
    static bool one_in(std::mt19937& random, unsigned n) { return random() % n == 0; }

    /// Height of the peak in a spectrum, or the error of taking it.
    double height(int spectrum, double applied) const {
        std::mt19937 random(seed + static_cast<unsigned>(spectrum) * 7919);
        if (uniform(random, 0, 1) < trouble) {
            const Error errors[] = {
                {-1, "anyone", "No peaks returned by peakfinder"}, {-99, "ADC", "overheated"}, {1, "", "User aborted"}};
            throw errors[random() % 3];
        }
        if (uniform(random, 0, 1) < trouble / 4) return 3e9;
        const double share = std::clamp((lower_reduces ? applied : 100 - applied) / 100, 0.0, 1.0);
        const double noise = seed % 3 ? 1 : uniform(random, 0.2, 1.8);
        return std::floor(2 * 1e6 / speed_up * std::pow(share, steepness) * noise) / 2;  // halves are to be rounded
    }

    bool fast, lower_reduces = true, averaging = false;
    unsigned seed;
    int index, transients = 0;
    double low = 0, high = 100, entry = 0, resolution = 0, target = 1, tolerance = 1, speed_up = 1, trouble = 0;
    double steepness = 1;
};

/// The steps as they are told, with nothing shared between them.
struct Model {
    explicit Model(const Trial& given) : t(given) {}

    std::string run() {
        outcome = {End::target_never_reached, 0, 0, t.target / t.speed_up, t.speed_up, {}};
        AbTarget = outcome.scaled_target;
        transients(t.transients / t.speed_up);
        say(name, "(IdxOfSetpointToAdjust[", t.index, "], mz[900], AbTarget[", AbTarget,
            "], dmz[30], bLowerThisSPToReduceAbundance[", t.lower_reduces ? "True" : "False", "], StartingMinSPValue[",
            t.low, "], StartingMaxSPValue[", t.high, "], SPResolution[", t.resolution, "]");
        say("Original Setpoint value is ", t.entry);
        const double Resolution = t.resolution == not_given ? 1 : t.resolution;
        double LowVoltage = t.high == not_given ? 0 : t.low, HighVoltage = t.high == not_given ? 100 : t.high;
        double BestValue = t.entry;
        std::int32_t MaxAb = 0;
        middle = LowVoltage;
        for (;;) {
            const double previous = middle;
            middle = (HighVoltage + LowVoltage) / 2;
            say("new PreviousVoltage[", previous, "]; new Setpoint_Middle = (", HighVoltage, " + ", LowVoltage,
                ") / 2 = ", middle);
            if (std::abs(middle - previous) < Resolution || middle == previous) {
                say("We have reached the limits of resolution on this setpoint; setting final value[", BestValue,
                    "]; exiting");
                say("setting setpoint[", t.index, "] to [", BestValue, "]");
                outcome.end = MaxAb > 0 ? End::resolution_reached : End::target_never_reached;
                return leave(BestValue, MaxAb);
            }
            pending = Error(0, "", "");
            t.fast ? measure_fast() : measure();
            const double scale = t.transients / t.speed_up / 10000;
            const bool near = std::abs(AbTarget - MiddleAb) < t.tolerance * scale / t.speed_up;
            if (near && pending.number() != 1 && (t.fast || t.index != 104)) {
                say("We have found a value [v,ab]=[", middle, ", ", MiddleAb, "] within ",
                    t.fast ? "close range of Ab target" : "20k Ab of target", "; exiting");
                probe(LowVoltage, HighVoltage);
                outcome.end = End::within_tolerance;
                return leave(middle, MiddleAb);
            }
            if (pending.number() != 0) return fail();
            const std::string bounds = text_of("AbTarget[", AbTarget, "], MiddleAb[", MiddleAb, "], PreviousVoltage[",
                                               previous, "], Setpoint_Middle[", middle, "], HighVoltage[", HighVoltage,
                                               "], LowVoltage[", LowVoltage, "] ==> Moving ");
            if (MiddleAb <= AbTarget && MiddleAb > MaxAb) {
                if (t.fast) say("Better Ab found: New MaxSPValue, MaxAb = [", middle, ", ", MiddleAb, "]");
                BestValue = middle;
                MaxAb = MiddleAb;
            }
            if (t.lower_reduces == (MiddleAb > AbTarget)) {
                say(bounds, "High_Boundary down");
                HighVoltage = middle;
            } else {
                say(bounds, "Low_Boundary up");
                LowVoltage = middle;
            }
            probe(LowVoltage, HighVoltage);
        }
    }

    const Trial& t;
    Lines log{"===Binary Search 11/21/2026 10:00:00 AMGainChannel = 0"}, journal;
    AdjustOutcome outcome;

private:
    template <class... Pieces>
    void say(const Pieces&... pieces) {
        log.push_back(text_of(pieces...));
    }
    void transients(double value) { journal.push_back(text_of("write 127 = ", value, " (double)")); }
    void probe(double low, double high) {
        const auto number = static_cast<std::int32_t>(outcome.probes.size()) + 1;
        outcome.probes.push_back({number, middle, static_cast<double>(MiddleAb), low, high});
    }
    std::string leave(double value, double abundance) {
        say("setting setpoint[127] to [", t.transients, "]");
        transients(t.transients);
        outcome.value = value;
        outcome.abundance = abundance;
        return number_text(value);
    }
    std::string fail() {
        const std::string text = text_of("rror[", pending.number(), "] in ", name, "(): ", pending.description());
        say("e", text, "; rethrowing internally.");
        say("E", text);
        if (t.fast) say("Error[", pending.number(), "] in ", usual_name, "(): ", pending.description());
        return text_of(pending.number(), "|", pending.source(), "|", pending.description());
    }
    /// One spectrum; errors other than a missing peak are kept, and after an abort nothing is asked any more.
    bool spectrum(double& height) {
        if (pending.number() == 1) return false;
        journal.push_back(text_of("spectrum ", ++spectra));
        try {
            height = t.height(spectra, applied);
            return true;
        } catch (const Error& error) {
            if (error.number() != -1) pending = error;
            return false;
        }
    }
    bool take(double abundance) {
        const bool fits = abundance < 2147483647.5;
        if (fits)
            MiddleAb = static_cast<std::int32_t>(std::nearbyint(abundance));
        else
            pending = Error(6, "Korvane", text_of("Overflow: [", abundance, "]"));
        return fits;
    }
    void measure() {
        journal.push_back(text_of("write ", t.index, " = ", applied = middle, " (double)"));
        double sum = 0;
        for (int i = 0; i < (t.averaging ? 3 : 1); ++i) {
            double height = 0;
            if (!spectrum(height)) return;
            sum += height;
        }
        take(t.averaging ? sum / 3 : sum);
    }
    void channel(const char* when) {
        if (pending.number() != 1) say("Current QuadAMU value in FW ", when, applied);
    }
    void measure_once(const char* label) {
        double height = 0;
        if (spectrum(height)) take(height);
        say(label, MiddleAb);
    }
    void measure_fast() {
        applied = static_cast<double>(static_cast<float>(middle));
        journal.push_back(text_of("firmware 22 = ", static_cast<float>(middle)));
        say("Making direct call to FW...");
        say("Direct call returned [0]");
        say("Current QuadAMU value in FW (baseline): ", applied);
        double unused = 0;
        spectrum(unused);
        channel("after GetNewSpectrum(): ");
        say("1st MiddleAb = ", MiddleAb);
        spectrum(unused);
        channel("after GetNewSpectrum(): ");
        measure_once("1st MiddleAb = ");
        channel("after GetPeakInfos(): ");
        for (int again = 1; pending.number() != 1 && again <= 4; ++again) {
            if (AbTarget == 0) {
                pending = Error(11, "Korvane", "Division by zero");
                return;
            }
            if (std::abs(AbTarget - MiddleAb) / AbTarget <= 0.5) return;
            measure_once("resampled MiddleAb = ");
            say("Abs(AbTarget[", AbTarget, "] - MiddleAb[", MiddleAb, ") / AbTarget[", AbTarget,
                "] = ", std::abs(AbTarget - MiddleAb) / AbTarget);
            channel("after GetPeakInfos(): ");
        }
    }

    const std::string usual_name = "BinaryAdjustAbundanceDownUsingThisSetpoint";
    const std::string name = t.fast ? usual_name + "_Fast" : usual_name;
    double AbTarget = 0, middle = 0, applied = 0;
    std::int32_t MiddleAb = 0;
    int spectra = 0;
    Error pending{0, "", ""};
};

Lines texts(const AdjustOutcome& outcome) {
    Lines all{text_of(static_cast<int>(outcome.end), " ", outcome.scaled_target, " ", outcome.speed_up_factor)};
    for (const AdjustProbe& probe : outcome.probes)
        all.push_back(text_of(probe.number, " ", probe.value, " ", probe.abundance, " ", probe.low, " ", probe.high));
    return all;
}

class SearchModel : public testing::TestWithParam<bool> {};

TEST_P(SearchModel, AgreesOverHundredsOfRandomResponses) {
    SearchWorld world(GetParam());
    world.test.trace().on = false;
    world.test.preference("BinarySearchLoggingEnabled", "3000");
    std::mt19937 random(GetParam() ? 11 : 7);
    int ends[4] = {};
    for (int i = 0; i < 500; ++i) {
        SCOPED_TRACE(testing::Message() << "trial " << i);
        const Trial trial(random, GetParam());
        Model model(trial);
        const std::string expected = model.run();
        for (const int index : {50, 104}) world.instrument().setpoint(index) = {trial.entry, 0, 100, 1, 0.01, 4, "x"};
        world.instrument().setpoint(127).value = trial.transients;
        world.instrument().setpoint(162).value = trial.averaging;
        world.test.limit("Calibration", "AIC_SearchSpeedUpFactor", number_text(trial.speed_up));
        world.test.limit("Calibration", "BinarySearchAbTolerance", number_text(trial.tolerance));
        world.instrument().spectra = 0;
        world.instrument().journal.clear();
        world.instrument().acquire = [&](AcquiredSpectrum& spectrum, int number) {
            const auto& applied =
                GetParam() ? world.instrument().firmware[22] : world.instrument().setpoint(trial.index).value;
            world.set_peak(900, trial.height(number, applied));
            world.fill(spectrum);
        };
        world.parser = SpectrumParser(world.platform());  // reads the new limits
        std::filesystem::remove_all(world.test.base() / "Logfiles");
        std::filesystem::create_directory(world.test.base() / "Logfiles");
        std::size_t shown = 0;
        world.parser.on_adjust_probe(
            [&](const AdjustProbe& probe) { shown += probe.value == world.outcome().probes.back().value; });
        double result = 0;
        const std::string error = raised([&] {
            result = world.parser.BinaryAdjustAbundanceDownUsingThisSetpoint(
                trial.index, 900, trial.target, 30, trial.lower_reduces, trial.low, trial.high, trial.resolution);
        });
        ASSERT_EQ(error == "no error" ? number_text(result) : error, expected);
        ASSERT_EQ(joined(world.instrument().journal), joined(model.journal));
        ASSERT_EQ(joined(world.log()), joined(model.log));
        ASSERT_EQ(joined(texts(world.outcome())), joined(texts(model.outcome)));
        ASSERT_EQ(shown, model.outcome.probes.size());
        ASSERT_TRUE(error != "no error" || world.outcome().value == result);
        ASSERT_EQ(world.outcome().abundance, model.outcome.abundance);
        ++ends[error == "no error" ? static_cast<int>(model.outcome.end) : 3];
    }
    for (const int count : ends) EXPECT_GT(count, 15) << "trials that end in one way are too few";
}

INSTANTIATE_TEST_SUITE_P(Search, SearchModel, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "Fast" : "Normal"; });

}  // namespace
}  // namespace korvane
