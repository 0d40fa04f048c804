// One table over the options, with a parameter file in which every key has a value of its own.
#include <sstream>

#include "globals/tune_globals_test.h"

namespace korvane {
namespace {

class Detector : public TuneGlobalsTest {
protected:
    Detector() {
        for (std::int32_t index : {18, 117, 119, 128, 149}) setpoint(index, 0);
        setpoint(167, 167);
        setpoint(169, 169);
        for (const char* key : {"PreAmpOffsetRampStart",
                                "PreAmpOffsetRampStart_160cm_LowGain",
                                "PreAmpOffsetRampStart_4GHz_LowGain",
                                "PreAmpOffsetRampStart_160cm_HighGain",
                                "PreAmpOffsetRampStart_4GHz_HighGain",
                                "PreAmpOffsetRampStop",
                                "PreAmpOffsetRampStop_160cm_LowGain",
                                "PreAmpOffsetRampStop_4GHz_LowGain",
                                "PreAmpOffsetRampStop_160cm_HighGain",
                                "PreAmpOffsetRampStop_4GHz_HighGain",
                                "amp_step",
                                "PreAmpOffset_step_LowGain_160cm",
                                "PreAmpOffset_step_LowGain",
                                "amp_step_160cm",
                                "amp_step_4GHz",
                                "CntPerIon_160cm",
                                "CntPerIon_Sigma4",
                                "CntPerIon_Sigma1QTOFPos",
                                "CntPerIon_Sigma1",
                                "PHDTransmission_Sigma4",
                                "PHDTransmission_Sigma1"})
            key_in("gainParams", key);
        for (const char* key : {"DefaultDryingGasTemp_4410_DualSGF", "DefaultDryingGasTemp_4410_DualESI",
                                "DefaultDryingGasPressure", "DefaultSheathGasTemp_4410", "DefaultSheathGasTemp",
                                "DefaultSheathGasPressure_4410", "DefaultSheathGasPressure"})
            key_in("Limits", std::string("DualSGF_") + key);
        test.limit("Calibration", "MaxAbBeforeSaturationOccursOnHiGainChannel", "20000");
        std::string modes;
        for (const auto& [polarity, source, offset] :
             {std::tuple{"pos", "ESI", 1000}, {"neg", "ESI", 2000}, {"pos", "Dual ESI", 3000}})
            modes += mode(polarity, source, offset);
        test.raw_parameters("<Mode>" + modes + "</Mode>");
    }

    void key_in(const std::string& group, const std::string& key) {
        names_.push_back(key);
        test.limit(group, key, std::to_string(names_.size() - 1));
    }
    static std::string mode(const std::string& polarity, const std::string& source, int offset) {
        std::string xml =
            "<Tune polarity='" + polarity + "' source='" + source + "'><InitialAutotuneStartingSetpointValues>";
        for (const char* name : {"GasTemp", "DryingGas", "FragmentTune"})
            xml += "<Param internalName='" + std::string(name) + "'>" + std::to_string(++offset) + "</Param>";
        return xml + "</InitialAutotuneStartingSetpointValues></Tune>";
    }
    const std::string& key_of(double value) const { return names_.at(static_cast<std::size_t>(value)); }
    void options(bool digitiser, bool dual) {
        test.instrument().options.clear();
        if (digitiser) test.instrument().options[4] = "Digitiser";
        if (dual) test.instrument().options[13] = "Dual source";
    }

private:
    std::vector<std::string> names_;
};

TEST_F(Detector, GainKeysFollowDigitiserTubeChannelPolarityAndPostAcceleration) {
    struct Row {
        const char* setup;  // d digitiser, t 160 cm tube, l low-gain setpoint, n negative, a post-acceleration
        std::string ends_low, ends_high, step, pulse, baseline;
    };
    const Row rows[] = {
        {"", "", "", "amp_step", "Sigma1", "Sigma1"},
        {"a", "", "", "amp_step", "Sigma1QTOFPos", "Sigma1"},
        {"na", "", "", "amp_step", "Sigma1", "Sigma1"},
        {"l", "", "", "amp_step", "Sigma1", "Sigma1"},
        {"t", "", "", "amp_step", "160cm", "Sigma4"},
        {"d", "_4GHz_LowGain", "_4GHz_HighGain", "amp_step_4GHz", "Sigma4", "Sigma4"},
        {"da", "_4GHz_LowGain", "_4GHz_HighGain", "amp_step_4GHz", "Sigma4", "Sigma4"},
        {"dl", "_4GHz_LowGain", "_4GHz_HighGain", "PreAmpOffset_step_LowGain", "Sigma4", "Sigma4"},
        {"dt", "_160cm_LowGain", "_160cm_HighGain", "amp_step_160cm", "160cm", "Sigma4"},
        {"dtl", "_160cm_LowGain", "_160cm_HighGain", "PreAmpOffset_step_LowGain_160cm", "160cm", "Sigma4"},
    };
    auto made = globals();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.setup);
        const auto has = [&](char c) { return std::string(row.setup).find(c) != std::string::npos; };
        options(has('d'), false);
        test.instrument().flight_tube_160cm = has('t');
        test.instrument().positive_post_acceleration = has('a');
        setpoint(149, has('l') ? 2 : 3);
        setpoint(119, has('n') ? 1 : 0);
        EXPECT_EQ(key_of(made.GetPreAmpOffsetRampStart(true)), "PreAmpOffsetRampStart" + row.ends_low);
        EXPECT_EQ(key_of(made.GetPreAmpOffsetRampStart()), "PreAmpOffsetRampStart" + row.ends_high);
        EXPECT_EQ(key_of(made.GetPreAmpOffsetRampStop(true)), "PreAmpOffsetRampStop" + row.ends_low);
        EXPECT_EQ(key_of(made.GetPreAmpOffsetRampStop()), "PreAmpOffsetRampStop" + row.ends_high);
        EXPECT_EQ(key_of(made.GetPreAmpOffsetRampStep()), row.step);
        EXPECT_EQ(key_of(made.GetPulseHeightTarget()), "CntPerIon_" + row.pulse);
        EXPECT_EQ(key_of(made.GetBaselineCutoff()), "PHDTransmission_" + row.baseline);
    }
}

TEST_F(Detector, DualSourceDefaultsFollowSourceAndModelAndOthersTheStateOfNow) {
    auto made = globals();
    options(false, true);
    for (const auto& [code, model, suffix] : {std::tuple{11, "K4410Z", "_4410"}, {5, "K4430", ""}}) {
        setpoint(117, code);
        test.instrument().model = model;
        EXPECT_EQ(key_of(made.GetDefaultGasTempValue()),
                  std::string("DualSGF_DefaultDryingGasTemp_4410_Dual") + (code == 11 ? "SGF" : "ESI"));
        EXPECT_EQ(key_of(made.GetDefaultDryingGasValue()), "DualSGF_DefaultDryingGasPressure");
        EXPECT_EQ(key_of(made.GetDefaultSheathGasTempValue()), std::string("DualSGF_DefaultSheathGasTemp") + suffix);
        EXPECT_EQ(key_of(made.GetDefaultSheathGasPressureValue()),
                  std::string("DualSGF_DefaultSheathGasPressure") + suffix);
    }
    options(true, false);
    for (const auto& [polarity, source, offset] :
         {std::tuple{0, "ESI", 1000}, {1, "ESI", 2000}, {0, "Dual ESI", 3000}}) {
        setpoint(119, polarity);
        test.instrument().source_word = source;
        EXPECT_EQ(made.GetDefaultGasTempValue(), offset + 1);
        EXPECT_EQ(made.GetDefaultDryingGasValue(), offset + 2);
        EXPECT_EQ(made.GetDefaultFragmentorValue(), offset + 3);
        EXPECT_EQ(made.GetInitSP("nobody", "asks", "DryingGas"), offset + 2);
    }
    EXPECT_EQ(made.GetDefaultSheathGasTempValue(), 169);
    EXPECT_EQ(made.GetDefaultSheathGasPressureValue(), 167);
    EXPECT_TRUE(test.trace().contains(
        "GetAutotuneSetpointInitValue: Querying XML for \"/QTOFTuneParams/Mode/Tune[@polarity=\"pos\" and "
        "@source=\"Dual ESI\"]/InitialAutotuneStartingSetpointValues"));
    EXPECT_EQ(
        raised([&] { made.GetAutotuneSetpointInitValue("No"); }),
        "-904|AutotuneParameterXMLConfigFileReader|Item[Param[@internalName=\"No\"]] not found in Tune XML config "
        "file at path[/QTOFTuneParams/Mode/Tune[@polarity=\"pos\" and @source=\"Dual "
        "ESI\"]/InitialAutotuneStartingSetpointValues]");
}

TEST_F(Detector, ThresholdsFollowTheTransientsOfTheSamplingRate) {
    auto made = globals();
    for (const auto& [index, value] : {std::pair{127, 1000.0}, {160, 20000.0}, {161, 7.0}}) setpoint(index, value);
    for (const auto& [rate, transients] : {std::pair{1, 1000.0}, {2, 20000.0}, {3, 7.0}, {9, 1000.0}}) {
        setpoint(18, rate);
        EXPECT_DOUBLE_EQ(made.GetNumTransScalingFactor(), transients / 10000);
        EXPECT_EQ(made.GetAbForFullDetectorSaturation(), transients * 255);
        EXPECT_EQ(made.GetHardSaturationThreshold(), transients * 255);
        EXPECT_EQ(made.GetSaturationThreshold_Hard(), transients * 255);
        EXPECT_DOUBLE_EQ(made.GetMaxAbBeforeSaturationOccurs(), transients * 2);
        EXPECT_DOUBLE_EQ(made.GetSaturationThreshold_Begin(), transients * 2);
    }
    test.trace().lines.clear();
    made.GetSaturationThreshold_Hard();
    EXPECT_EQ(test.trace().lines[0], "> GetSaturationThreshold_Hard");
}

TEST_F(Detector, SpectrumTimesAreWholeMicrosecondsOfTheHighestMass) {
    auto made = globals();
    test.instrument().calibrations[0] = std::make_shared<SquareLawCalibration>(CalibrationCoefficients{1, 0});
    for (const auto& [scale, us] : {std::pair{1e-4, 412}, {1.0 / 2500, 103}, {1.0, 0}}) {
        test.instrument().calibrations[0]->set_coefficients({scale, 0});
        EXPECT_EQ(made.GetMaxSpectrumTime_usec(), us);
        EXPECT_EQ(made.GetMinSpectrumTime_usec(), 10);
    }
    test.instrument().calibrations[0]->set_coefficients({1, 2500 - std::sqrt(1700.0)});
    EXPECT_EQ(made.GetMaxSpectrumTime_usec(), 2) << "halves go to the even neighbour";
}

TEST_F(Detector, SwitchesAreExact) {
    auto made = globals();
    for (std::int16_t setting : {0, 1, -1}) {
        test.instrument().abundance_reduction = setting;
        EXPECT_EQ(made.EnableAbundanceReductionTechnology(), setting != 0);
    }
    const auto adjustable = [&](VariantArray<double> masses) {
        return made.ThisIsAnAbundanceAdjustableRamp(0, masses);
    };
    EXPECT_TRUE(adjustable(std::vector<double>{1}));
    EXPECT_FALSE(adjustable(std::vector<double>{1, 2}));
    EXPECT_FALSE(adjustable(std::vector<double>{}));
    EXPECT_FALSE(adjustable({std::vector<double>{1}, 1}));
    EXPECT_EQ(raised([&] { adjustable({}); }).substr(0, 3), "13|");
}

}  // namespace
}  // namespace korvane
