// Getters by their worlds, called by name: the answer, the routine's own lines, its name in the trace. The parameter
// file has next to no keys: the error of a routine names the key that it asks for, which then is the answer.
#include "globals/tune_globals_test.h"
#include "korvane/automation.h"
#include "platform/cases.h"

namespace korvane {
namespace {

class Getters : public TuneGlobalsTest {
protected:
    Getters() {
        test.limit("Calibration", "MaxAbBeforeSaturationOccursOnHiGainChannel", "20000");
        test.raw_parameters("<Misc><QuadMaxMass>8000</QuadMaxMass></Misc>");
        test.instrument().calibrations[0] = make_square_law_calibration(CalibrationCoefficients{1e-4, 0});
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
        for (const std::string& word :
             cases_in("18=0 117=0 119=0 128=0 149=0 150=0 127=1000 160=20000 161=7 167=167 169=169 " + world, ' '))
            if (const auto at = word.find('='); at != std::string::npos)
                setpoint(std::stoi(word), std::stod(word.substr(at + 1)));
    }
    /// Of "Member" or "Member(argument,argument)", with what the routine printed behind a '|'.
    std::string answer(const std::string& call) {
        if (!made_) made_ = automation::create_object("Korvane.TuneGlobals", test.platform());
        const std::string member = call.substr(0, call.find('('));
        std::vector<automation::Value> arguments;
        if (member != call)
            for (const std::string& argument :
                 cases_in(call.substr(member.size() + 1, call.size() - member.size() - 2), ','))
                arguments.emplace_back(argument);
        test.trace().lines.clear();
        std::string got;
        const std::string error = raised([&] { got = made_->call(member, arguments).as_text(); });
        if (error != "no error") {
            const std::string missing = "-905|GetTuneParamByXMLPath|XML Query failed for /QTOFTuneParams/";
            got = error.starts_with(missing) ? error.substr(missing.size()) : error;
            EXPECT_THAT(made_->call("ErrorMsgString").as_text(), testing::StartsWith("Error[-905] in " + member));
        }
        EXPECT_EQ(test.trace().lines.front(), "> " + member);
        for (const std::string& line : test.trace().lines)
            if (line.starts_with(member + ": ") && error == "no error") got += "|" + line.substr(member.size() + 2);
        return got;
    }
    /// Expected answers, "Member=answer&...".
    void expect(const std::string& world, const std::string& answers) {
        SCOPED_TRACE(world);
        be(world);
        for (const std::string& expected : cases_in(answers, '&')) {
            const std::string member = expected.substr(0, expected.find('='));
            EXPECT_EQ(member + "=" + answer(member), expected);
        }
    }

private:
    automation::Object made_;
};

TEST_F(Getters, AnswerByTheirWorld) {
    const std::string list_type = "GetMassListTypeFromSourceTypeString";
    const std::string limits = "TOF/AutotuneParameters/Limits, DualSGF_Default", rate = "Error: invalid Sample Rate; ";
    const auto initial = [](const std::string& state, const std::string& name) {
        return "Mode/Tune[@polarity=\"" + state.substr(0, 3) + "\" and @source=\"" + state.substr(4) +
               "\"]/InitialAutotuneStartingSetpointValues, Param[@internalName=\"" + name + "\"]";
    };
    const std::pair<const char*, std::string> rows[] = {
        {"119=0", "GetPolarityStr=Positive&GetPolarity3LetterAbbreviation=pos&GetPolarityTuneSetpointValue=0"},
        {"119=0", "GetPolaritySpecificCoronaSetpointIndex=125&QuadType=2&GetMinSpectrumTime_usec=10"},
        {"119=1", "GetPolarityStr=Negative&GetPolarity3LetterAbbreviation=neg&GetPolarityTuneSetpointValue=1"},
        {"119=-1", "GetPolaritySpecificCoronaSetpointIndex=126&GetPolarityStr=Negative"},
        {"119=0.25", "GetPolarityStr=Negative&GetPolarity3LetterAbbreviation=neg&GetPolarityTuneSetpointValue=1"},
        {"18=1", "GetNumTransTuneSPForCurrentSamplingRate=127&GetNumTransScalingFactor=0.1"},
        {"18=2", "GetNumTransTuneSPForCurrentSamplingRate=160&GetAbForFullDetectorSaturation=5100000"},
        {"18=2", "GetHardSaturationThreshold=5100000&GetMaxAbBeforeSaturationOccurs=40000&GetNumTransScalingFactor=2"},
        {"18=3", "GetNumTransTuneSPForCurrentSamplingRate=161&GetSaturationThreshold_Hard=1785"},
        {"18=3", "GetSaturationThreshold_Begin=14"},
        {"18=0", "GetNumTransTuneSPForCurrentSamplingRate=127|" + rate + "defaulting to 1GHz"},
        {"18=4", "GetNumTransTuneSPForCurrentSamplingRate=127|" + rate + "defaulting to 1GHz"},
        {"", "EnableAbundanceReductionTechnology=False&GetMaxSpectrumTime_usec=412"},
        {"reduced", "EnableAbundanceReductionTechnology=True"},
        {"dual 117=11 k4410", "GetDefaultGasTempValue=" + limits + "DryingGasTemp_4410_DualSGF"},
        {"dual 117=5", "GetDefaultGasTempValue=" + limits + "DryingGasTemp_4410_DualESI"},
        {"dual", "GetDefaultDryingGasValue=" + limits + "DryingGasPressure"},
        {"dual 117=11 k4410", "GetDefaultSheathGasTempValue=" + limits + "SheathGasTemp_4410"},
        {"dual 117=9 k4410", "GetDefaultSheathGasPressureValue=" + limits + "SheathGasPressure_4410"},
        {"dual 117=9", "GetDefaultSheathGasTempValue=" + limits + "SheathGasTemp"},
        {"dual 117=11", "GetDefaultSheathGasPressureValue=" + limits + "SheathGasPressure"},
        {"dual 117=5", "GetDefaultSheathGasTempValue=169&GetDefaultSheathGasPressureValue=167"},
        {"digitiser 117=11", "GetDefaultSheathGasTempValue=169&GetDefaultSheathGasPressureValue=167"},
        {"", "GetDefaultGasTempValue=" + initial("pos ESI", "GasTemp")},
        {"", "GetDefaultDryingGasValue=" + initial("pos ESI", "DryingGas")},
        {"119=1", "GetDefaultFragmentorValue=" + initial("neg ESI", "FragmentTune")},
        {"119=1", "GetInitSP(nobody,asks,DryingGas)=" + initial("neg ESI", "DryingGas")},
        {"", list_type + "(Unknown)=ESI&" + list_type + "(SGF ESI)=ESI&" + list_type + "(Dual SGF ESI)=ESI"},
        {"", list_type + "(Dual ESI)=ESI&" + list_type + "(Dual nanoESI)=nanoESI&" + list_type + "(esi)=esi"},
        {"word", "GetAutotuneSetpointInitValue(GasTemp)=" + initial("pos Dual ESI", "GasTemp")},
    };
    for (const auto& [world, answers] : rows) expect(world, answers);
    EXPECT_TRUE(test.trace().contains("GetAutotuneSetpointInitValue: Querying XML for \"/QTOFTuneParams/" +
                                      initial("pos Dual ESI", "").substr(0, initial("pos Dual ESI", "").find(", "))));
}

TEST_F(Getters, GainKeysFollowDigitiserTubeChannelPolarityAndPostAcceleration) {
    struct Row {
        const char* world;
        std::string ends, step, pulse, baseline;
    };
    const Row rows[] = {{"", "", "amp_step", "Sigma1", "Sigma1"},
                        {"post", "", "amp_step", "Sigma1QTOFPos", "Sigma1"},
                        {"119=1 post", "", "amp_step", "Sigma1", "Sigma1"},
                        {"149=2", "", "amp_step", "Sigma1", "Sigma1"},
                        {"tube", "", "amp_step", "160cm", "Sigma4"},
                        {"digitiser", "_4GHz", "amp_step_4GHz", "Sigma4", "Sigma4"},
                        {"digitiser post 149=3", "_4GHz", "amp_step_4GHz", "Sigma4", "Sigma4"},
                        {"digitiser 149=2", "_4GHz", "PreAmpOffset_step_LowGain", "Sigma4", "Sigma4"},
                        {"digitiser tube 149=1", "_160cm", "amp_step_160cm", "160cm", "Sigma4"},
                        {"digitiser tube 149=2", "_160cm", "PreAmpOffset_step_LowGain_160cm", "160cm", "Sigma4"}};
    for (const Row& row : rows) {
        const std::string key = "=TOF/AutotuneParameters/gainParams, ", ramp = key + "PreAmpOffsetRamp";
        const std::string high = row.ends + (row.ends.empty() ? "" : "_HighGain");
        const std::string low = row.ends + (row.ends.empty() ? "" : "_LowGain");
        expect(row.world, "GetPreAmpOffsetRampStart" + ramp + "Start" + high + "&GetPreAmpOffsetRampStop" + ramp +
                              "Stop" + high + "&GetPreAmpOffsetRampStart(True)" + ramp + "Start" + low +
                              "&GetPreAmpOffsetRampStop(True)" + ramp + "Stop" + low + "&GetPreAmpOffsetRampStep" +
                              key + row.step + "&GetPulseHeightTarget" + key + "CntPerIon_" + row.pulse +
                              "&GetBaselineCutoff" + key + "PHDTransmission_" + row.baseline);
    }
}

TEST_F(Getters, CapillaryVoltageGoesByTheCodeOfTheSourceAndVaporizerByItsName) {
    // By the source's code from -1 on: its name, what the trace calls it, its capillary voltage.
    // Name, word of the trace and capillary setpoint of the codes from -1 on.
    const std::string rows =
        ",,104|ESI,ESI,104|HPLC-Tile,HPLC-Tile,116|nanoESI,nanoESI,106|MALDI,,104|Multimode,MultiMode,105|ESI,ESI,104|"
        "nanoESI,nanoESI,106|APCI,APCI,121|APPI,APPI,107|ESI,SGF,165|GC-APCI,APCI,121|ESI,SGF,165|,,104";
    for (int code = -1; const std::string& row : cases_in(rows, '|')) {
        const Lines source = cases_in(row, ',');
        const std::string &name = source.at(0), &selecting = source.at(1);
        const bool has_own = name == "APCI" || name == "APPI" || name == "Multimode";
        const std::string vaporizer =
            has_own ? "Selecting " + name
                    : "Vaporizer-less Source Type selected [" + name + "]; defaulting to MultiMode Vaporizer";
        const std::string unknown = "Unrecognized Source Type selected [" + std::to_string(code) + "]; defaulting VCap";
        be("117=" + std::to_string(code++));
        EXPECT_EQ(answer("GetSourceTypeStr"), name);
        EXPECT_EQ(
            answer("GetSourceSpecificVCapSetpointIndex"),
            source.at(2) + "|" + (selecting.empty() ? unknown + " actual to ESI VCap" : "Selecting " + selecting));
        EXPECT_EQ(answer("GetSourceSpecificVaporizerSetpointIndex"),
                  (name.starts_with("AP") ? "123|" : "124|") + vaporizer);
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
