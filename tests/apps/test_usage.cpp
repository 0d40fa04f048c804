// What the command line refuses, and how it says so.
#include <gtest/gtest.h>

#include <limits>

#include "number_options.h"
#include "program_run.h"

namespace korvane::program {
namespace {

TEST(Usage, BadArgumentsAreRefusedInOneLineThatNamesThem) {
    const ProgramTest program;
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{}, "subcommand"},
        {{"mesure"}, "mesure"},
        {{"measure", "--mass", "abc"}, "abc"},
        {{"measure", "--mass", "0"}, "--mass"},
        {{"measure", "--mass", "-5"}, "--mass"},
        {{"measure", "--mass", "nan"}, "nan"},
        {{"measure", "--mass", "inf"}, "inf"},
        {{"measure", "--mass", "1e999"}, "1e999"},
        {{"measure", "--mass", "158.9 "}, "158.9"},
        {{"measure", "--mass", "0x10"}, "0x10"},
        {{"measure", "--mass", "1,5"}, "1,5"},
        {{"measure", "--mass", "1e7"}, "mass range"},
        {{"measure", "--window", "0"}, "--window"},
        {{"measure", "--window", "100"}, "--window"},
        {{"measure", "--seed", "-1"}, "--seed"},
        {{"measure", "--seed", "18446744073709551616"}, "--seed"},
        {{"measure", "extra"}, "extra"},
        {{"measure", "--replay", ""}, "--replay"},
        {{"init", ""}, "DIR"},
        {{"peak"}, "MASS"},
        {{"peak", "922", "--attribute", "colour"}, "colour"},
        {{"peak", "10", "--window", "20"}, "mass"},
        {{"adjust", "FragmentTune", "--mz", "566.8885"}, "--target"},
        {{"adjust", "Fragmentation", "--mz", "566.8885", "--target", "1"}, "Fragmentation"},
        {{"adjust", "30", "--mz", "566.8885", "--target", "1", "--min", "200", "--max", "100"}, "--min 200"},
        {{"adjust", "30", "--mz", "566.8885", "--target", "1", "--max", "1e6"}, "limits"},
        {{"adjust", "30", "--mz", "566.8885", "--target", "1", "--resolution", "0"}, "--resolution"},
        {{"adjust", "30", "--mz", "566.8885", "--target", "1", "--fast"}, "QuadAMU"},
        {{"setpoint"}, "subcommand"},
        {{"setpoint", "get", "31x"}, "31x"},
        {{"setpoint", "get", "99999999999"}, "99999999999"},
        {{"setpoint", "set", "FragmentTune"}, "--delta"},
        {{"setpoint", "set", "FragmentTune", "100", "--delta", "1"}, "--delta"},
        {{"setpoint", "set", "FragmentTune", "401"}, "0 to 400"},
        {{"setpoint", "set", "FragmentTune", "--delta", "-1000"}, "0 to 400"},
        {{"params", "set", "RampParams", "MinimumAcceptableAbundance", "many"}, "many"},
        {{"masslist", "show", "--polarity", "sideways"}, "sideways"},
        {{"masslist", "set"}, "MASS"},
        {{"calibration", "set", "-A", "0.45"}, "--t0"},
        {{"calibration", "set", "-A", "0.45", "--t0", "0.02", "--default"}, "--default"},
        {{"calibration", "show", "--repeat", "1"}, "--repeat"},
        {{"record", "x.mzML", "-n", "0"}, "-n"},
        {{"abort", "perhaps"}, "perhaps"},
    };
    for (const auto& [arguments, named] : cases) {
        const Outcome run = program.run(arguments);
        EXPECT_EQ(run.code, 2) << named << ": " << run.err;
        EXPECT_TRUE(run.out.empty()) << run.out;
        ASSERT_EQ(run.failure_lines().size(), 1U) << run.err;
        EXPECT_NE(run.failure_lines().front().find(named), std::string::npos) << run.err;
        EXPECT_NE(run.failure_lines().front().find("--help"), std::string::npos) << run.err;
    }
}

TEST(Usage, GlobalOptionsMayFollowTheCommand) {
    const ProgramTest program;
    const Outcome run = run_program({"prefs", "get", "AbortFlag", "--base", program.base.string()});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "0\n");
}

TEST(Numbers, AreReadWholeAndFinite) {
    for (const char* text : {"", " 1", "1 ", "1.2.3", "+-1", "--1", "1e", "infinity", "-nan", "1e400", "0x1p3"})
        EXPECT_FALSE(parse_number(text)) << text;
    EXPECT_EQ(parse_number("+1.5e2"), 150.0);
    EXPECT_EQ(parse_number("-.5"), -0.5);
    EXPECT_EQ(parse_integer("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
    EXPECT_FALSE(parse_integer("9223372036854775808"));
}

}  // namespace
}  // namespace korvane::program
