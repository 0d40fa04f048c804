// Getters by their worlds, called by name: the answer, the routine's own lines, its name in the trace. The
// parameter file gives every key a value of its own, and an answer that is one of these reads as the key.
#include <sstream>

#include "globals/tune_globals_test.h"
#include "korvane/automation.h"

namespace korvane {
namespace {

Lines words(const std::string& text, char separator = ' ') {
    Lines all;
    std::istringstream in(text);
    for (std::string word; std::getline(in, word, separator);) all.push_back(word);
    return all;
}

class Getters : public TuneGlobalsTest {
protected:
    Getters() {
        for (const std::string& end : words("Start Stop"))
            for (const std::string& tail : words(" _160cm_LowGain _4GHz_LowGain _160cm_HighGain _4GHz_HighGain"))
                key_in("gainParams", "PreAmpOffsetRamp" + end + tail);
        for (const std::string& key :
             words("amp_step PreAmpOffset_step_LowGain_160cm PreAmpOffset_step_LowGain amp_step_160cm amp_step_4GHz "
                   "CntPerIon_160cm CntPerIon_Sigma4 CntPerIon_Sigma1QTOFPos CntPerIon_Sigma1 PHDTransmission_Sigma4 "
                   "PHDTransmission_Sigma1"))
            key_in("gainParams", key);
        for (const std::string& key :
             words("DryingGasTemp_4410_DualSGF DryingGasTemp_4410_DualESI DryingGasPressure SheathGasTemp_4410 "
                   "SheathGasTemp SheathGasPressure_4410 SheathGasPressure"))
            key_in("Limits", "DualSGF_Default" + key);
        test.limit("Calibration", "MaxAbBeforeSaturationOccursOnHiGainChannel", "20000");
        std::string modes;
        for (const std::string& state : {std::string("pos ESI"), std::string("neg ESI"), std::string("pos Dual ESI")}) {
            modes += "<Tune polarity='" + state.substr(0, 3) + "' source='" + state.substr(4) +
                     "'><InitialAutotuneStartingSetpointValues>";
            for (const std::string& name : words("GasTemp DryingGas FragmentTune"))
                modes += "<Param internalName='" + name + "'>" + new_key(state + " " + name) + "</Param>";
            modes += "</InitialAutotuneStartingSetpointValues></Tune>";
        }
        test.raw_parameters("<Misc><QuadMaxMass>8000</QuadMaxMass></Misc><Mode>" + modes + "</Mode>");
        test.instrument().calibrations[0] = std::make_shared<SquareLawCalibration>(CalibrationCoefficients{1e-4, 0});
    }

    /// Setpoints as "index=value", hardware by words.
    void be(const std::string& world) {
        const auto has = [&](const char* word) { return world.find(word) != std::string::npos; };
        ScriptedState& instrument = test.instrument();
        instrument.options.clear();
        if (has("digitiser")) instrument.options[4] = "Digitiser";
        if (has("dual")) instrument.options[13] = "Dual source";
        instrument.flight_tube_160cm = has("tube");
        instrument.positive_post_acceleration = has("post");
        instrument.model = has("k4410") ? "K4410Z" : "xK4410";
        instrument.source_word = has("word") ? "Dual ESI" : "ESI";
        instrument.abundance_reduction = has("reduced") ? -1 : 0;
        for (const int index : {18, 117, 119, 128, 149, 150}) setpoint(index, 0);
        for (const std::string& word : words("127=1000 160=20000 161=7 167=167 169=169 " + world))
            if (const auto at = word.find('='); at != std::string::npos)
                setpoint(std::stoi(word), std::stod(word.substr(at + 1)));
    }
    /// Of "Member" or "Member(argument,argument)".
    std::string answer(const std::string& call) {
        if (!made_) made_ = automation::create_object("Korvane.TuneGlobals", test.platform());
        const std::string member = call.substr(0, call.find('('));
        std::vector<automation::Value> arguments;
        if (member != call)
            for (const std::string& argument :
                 words(call.substr(member.size() + 1, call.size() - member.size() - 2), ','))
                arguments.emplace_back(argument);
        test.trace().lines.clear();
        const std::string got = made_->call(member, arguments).as_text();
        const Lines lines = own_trace();
        EXPECT_EQ(lines.front(), "> " + member);
        EXPECT_EQ(lines.back(), "< " + member);
        printed_.clear();
        for (const std::string& line : lines)
            if (line.starts_with(member + ": ")) printed_ += line.substr(member.size() + 2);
        const auto known = keys_.find(got);
        return known == keys_.end() ? got : known->second;
    }

    std::string printed_;  // the routine's own lines of the last answer

private:
    std::string new_key(const std::string& key) {
        const std::string value = std::to_string(5000 + keys_.size());
        keys_[value] = key;
        return value;
    }
    void key_in(const std::string& group, const std::string& key) { test.limit(group, key, new_key(key)); }

    std::map<std::string, std::string> keys_;
    automation::Object made_;
};

TEST_F(Getters, AnswerByTheirWorld) {
    struct Row {
        const char *world, *answers, *printed = "";
    };
    const Row rows[] = {
        {"119=0", "GetPolarityStr=Positive;GetPolarity3LetterAbbreviation=pos;GetPolarityTuneSetpointValue=0"},
        {"119=0", "GetPolaritySpecificCoronaSetpointIndex=125;QuadType=2;GetMinSpectrumTime_usec=10"},
        {"119=1", "GetPolarityStr=Negative;GetPolarity3LetterAbbreviation=neg;GetPolarityTuneSetpointValue=1"},
        {"119=-1", "GetPolaritySpecificCoronaSetpointIndex=126;GetPolarityStr=Negative"},
        {"119=0.25", "GetPolarityStr=Negative;GetPolarity3LetterAbbreviation=neg;GetPolarityTuneSetpointValue=1"},
        {"18=1", "GetNumTransTuneSPForCurrentSamplingRate=127;GetNumTransScalingFactor=0.1"},
        {"18=2", "GetNumTransTuneSPForCurrentSamplingRate=160;GetAbForFullDetectorSaturation=5100000"},
        {"18=2", "GetHardSaturationThreshold=5100000;GetMaxAbBeforeSaturationOccurs=40000;GetNumTransScalingFactor=2"},
        {"18=3", "GetNumTransTuneSPForCurrentSamplingRate=161;GetSaturationThreshold_Hard=1785"},
        {"18=3", "GetSaturationThreshold_Begin=14"},
        {"18=0", "GetNumTransTuneSPForCurrentSamplingRate=127", "Error: invalid Sample Rate; defaulting to 1GHz"},
        {"18=4", "GetNumTransTuneSPForCurrentSamplingRate=127", "Error: invalid Sample Rate; defaulting to 1GHz"},
        {"", "EnableAbundanceReductionTechnology=False;GetMaxSpectrumTime_usec=412"},
        {"reduced", "EnableAbundanceReductionTechnology=True"},
        {"dual 117=11 k4410", "GetDefaultGasTempValue=DualSGF_DefaultDryingGasTemp_4410_DualSGF"},
        {"dual 117=5", "GetDefaultGasTempValue=DualSGF_DefaultDryingGasTemp_4410_DualESI"},
        {"dual", "GetDefaultDryingGasValue=DualSGF_DefaultDryingGasPressure"},
        {"dual k4410", "GetDefaultSheathGasTempValue=DualSGF_DefaultSheathGasTemp_4410"},
        {"dual k4410", "GetDefaultSheathGasPressureValue=DualSGF_DefaultSheathGasPressure_4410"},
        {"dual", "GetDefaultSheathGasTempValue=DualSGF_DefaultSheathGasTemp"},
        {"dual", "GetDefaultSheathGasPressureValue=DualSGF_DefaultSheathGasPressure"},
        {"digitiser", "GetDefaultSheathGasTempValue=169;GetDefaultSheathGasPressureValue=167"},
        {"", "GetDefaultGasTempValue=pos ESI GasTemp;GetDefaultDryingGasValue=pos ESI DryingGas"},
        {"119=1", "GetDefaultFragmentorValue=neg ESI FragmentTune;GetInitSP(nobody,asks,DryingGas)=neg ESI DryingGas"},
        {"word", "GetAutotuneSetpointInitValue(GasTemp)=pos Dual ESI GasTemp",
         "Querying XML for \"/QTOFTuneParams/Mode/Tune[@polarity=\"pos\" and @source=\"Dual ESI\"]"
         "/InitialAutotuneStartingSetpointValues"},
    };
    for (const Row& row : rows)
        for (const std::string& expected : words(row.answers, ';')) {
            be(row.world);
            const std::string member = expected.substr(0, expected.find('='));
            EXPECT_EQ(member + "=" + answer(member), expected) << row.world;
            EXPECT_EQ(printed_, row.printed) << row.world << ": " << member;
        }
}

TEST_F(Getters, GainKeysFollowDigitiserTubeChannelPolarityAndPostAcceleration) {
    struct Row {
        const char* world;
        std::string ends, step, pulse, baseline;
    };
    const Row rows[] = {
        {"", "", "amp_step", "Sigma1", "Sigma1"},
        {"post", "", "amp_step", "Sigma1QTOFPos", "Sigma1"},
        {"119=1 post", "", "amp_step", "Sigma1", "Sigma1"},
        {"149=2", "", "amp_step", "Sigma1", "Sigma1"},
        {"tube", "", "amp_step", "160cm", "Sigma4"},
        {"digitiser", "_4GHz", "amp_step_4GHz", "Sigma4", "Sigma4"},
        {"digitiser post 149=3", "_4GHz", "amp_step_4GHz", "Sigma4", "Sigma4"},
        {"digitiser 149=2", "_4GHz", "PreAmpOffset_step_LowGain", "Sigma4", "Sigma4"},
        {"digitiser tube 149=1", "_160cm", "amp_step_160cm", "160cm", "Sigma4"},
        {"digitiser tube 149=2", "_160cm", "PreAmpOffset_step_LowGain_160cm", "160cm", "Sigma4"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.world);
        be(row.world);
        const std::string high = row.ends + (row.ends.empty() ? "" : "_HighGain");
        const std::string low = row.ends + (row.ends.empty() ? "" : "_LowGain");
        EXPECT_EQ(answer("GetPreAmpOffsetRampStart"), "PreAmpOffsetRampStart" + high);
        EXPECT_EQ(answer("GetPreAmpOffsetRampStop"), "PreAmpOffsetRampStop" + high);
        EXPECT_EQ(answer("GetPreAmpOffsetRampStart(True)"), "PreAmpOffsetRampStart" + low);
        EXPECT_EQ(answer("GetPreAmpOffsetRampStop(True)"), "PreAmpOffsetRampStop" + low);
        EXPECT_EQ(answer("GetPreAmpOffsetRampStep"), row.step);
        EXPECT_EQ(answer("GetPulseHeightTarget"), "CntPerIon_" + row.pulse);
        EXPECT_EQ(answer("GetBaselineCutoff"), "PHDTransmission_" + row.baseline);
    }
}

TEST_F(Getters, CapillaryVoltageGoesByTheCodeOfTheSourceAndVaporizerByItsName) {
    struct Row {
        std::string code, name, selecting;
        const char *capillary, *vaporizer = "124";
    };
    const Row rows[] = {{"0", "ESI", "ESI", "104"},
                        {"1", "HPLC-Tile", "HPLC-Tile", "116"},
                        {"2", "nanoESI", "nanoESI", "106"},
                        {"3", "MALDI", "", "104"},
                        {"4", "Multimode", "MultiMode", "105"},
                        {"5", "ESI", "ESI", "104"},
                        {"6", "nanoESI", "nanoESI", "106"},
                        {"7", "APCI", "APCI", "121", "123"},
                        {"8", "APPI", "APPI", "107", "123"},
                        {"9", "ESI", "SGF", "165"},
                        {"10", "GC-APCI", "APCI", "121"},
                        {"11", "ESI", "SGF", "165"},
                        {"12", "", "", "104"},
                        {"-1", "", "", "104"}};
    for (const Row& row : rows) {
        be("117=" + row.code);
        EXPECT_EQ(answer("GetSourceTypeStr"), row.name) << row.code;
        EXPECT_EQ(answer("GetSourceSpecificVCapSetpointIndex"), row.capillary) << row.code;
        EXPECT_EQ(printed_, row.selecting.empty() ? "Unrecognized Source Type selected [" + row.code +
                                                        "]; defaulting VCap actual to ESI VCap"
                                                  : "Selecting " + row.selecting);
        EXPECT_EQ(answer("GetSourceSpecificVaporizerSetpointIndex"), row.vaporizer) << row.code;
        const bool has_own = row.name == "APCI" || row.name == "APPI" || row.name == "Multimode";
        EXPECT_EQ(printed_, has_own ? "Selecting " + row.name
                                    : "Vaporizer-less Source Type selected [" + row.name +
                                          "]; defaulting to MultiMode Vaporizer");
    }
}

TEST_F(Getters, StateTextOfEveryRateGainResolutionTubeAndRange) {
    const std::pair<const char*, std::string> rows[] = {
        {"18=1 150=1", "Minimum Storage Size (1 GHz) in 1700 m/z Mass Range"},
        {"18=1 149=3 128=2 tube", "Minimum Storage Size (1 GHz) in 20,000 m/z Mass Range"},
        {"18=2 150=1 128=1", "2 GHz, Extended Dynamic Range Disabled in 3200 m/z Mass Range"},
        {"18=2 128=2 tube", "2 GHz, Extended Mass Range in 10,000 m/z Mass Range"},
        {"18=2 128=2", "2 GHz, Extended Dynamic Range Disabled in 20,000 m/z Mass Range"},
        {"18=2 149=1 tube", "2 GHz, High Gain in 1700 m/z Mass Range"},
        {"18=2 149=2 128=1 tube", "2 GHz, Low Gain in 3200 m/z Mass Range"},
        {"18=2 149=3 128=2 tube", "Extended Dynamic Range (2 GHz) in 10,000 m/z Mass Range"},
        {"18=2 149=4 128=5 tube", "2 GHz in 10,000 m/z Mass Range"},
        {"18=3 149=1 150=1 128=1", "4 GHz, High Resolution in 3200 m/z Mass Range"},
        {"18=3 149=3 150=-1 128=2 tube", "4 GHz, High Resolution in 20,000 m/z Mass Range"},
        {"18=3 tube", "4 GHz in 1700 m/z Mass Range"},
        {"150=1", " in 1700 m/z Mass Range"},
        {"18=7 149=3 150=1 128=-1 tube", " in 20,000 m/z Mass Range"},
    };
    for (const auto& [world, text] : rows) {
        be(world);
        EXPECT_EQ(answer("GetCurrentInstrumentStateAsString"), text);
        std::string range = text.substr(text.rfind(" in ") + 4);
        std::erase(range, ',');
        EXPECT_EQ(answer("GetMaxMassForCurrentMassRange") + " m/z Mass Range", range) << "text and number disagree";
    }
}

}  // namespace
}  // namespace korvane
