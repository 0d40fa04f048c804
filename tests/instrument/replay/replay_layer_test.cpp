#include "instrument/replay/replay_layer.h"

#include <gmock/gmock.h>

#include "platform/automation_arithmetic.h"
#include "recording_text.h"
#include "support/memory_disk.h"
#include "support/virtual_clock.h"

namespace korvane {

namespace {

struct Replay : testing::Test {
    void play(const std::vector<SpectrumText>& spectra, const std::string& before_run = {}) {
        disk->put("/base/recording.mzML", recording_text(spectra, before_run));
        layer = make_replay("/base/recording.mzML", "/base",
                            {{}, {}, [&](const std::string& line) { told.push_back(line); }}, disk, clock);
        globals = layer->create_globals();
        globals->initialise();
    }

    AcquiredSpectrum next() {
        AcquiredSpectrum spectrum;
        globals->control()->GetNextSpectrum(spectrum);
        return spectrum;
    }

    std::shared_ptr<MemoryDisk> disk = std::make_shared<MemoryDisk>();
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    std::shared_ptr<InstrumentLayer> layer;
    std::unique_ptr<InstrumentGlobals> globals;
    std::vector<std::string> told;  // by the recording
};

SpectrumText spectrum_number(int number, double seconds) {
    SpectrumText spectrum = plain_spectrum();
    spectrum.id = "scan=" + std::to_string(number);
    spectrum.intensity[0] = number;
    spectrum.scan =
        R"(<cvParam accession="MS:1000016" value=")" + std::to_string(seconds) + R"(" unitAccession="UO:0000010"/>)";
    return spectrum;
}

TEST_F(Replay, ShowsSpectraInOrderAndThenAroundAgainAtTheirPace) {
    play({spectrum_number(1, 30), spectrum_number(2, 30.3), spectrum_number(3, 480)});
    auto other = layer->create_globals();  // shares setpoints and place
    other->setpoints().write(69, 0, 0, std::int16_t{1});
    EXPECT_EQ(globals->setpoints().value(69, 0, 0), InstrumentValue(1));
    const double start = clock->total_seconds();
    std::vector<double> shown, seconds, times;
    for (int i = 0; i < 7; ++i) {
        const AcquiredSpectrum spectrum = next();
        shown.push_back(spectrum.y_data.at(0));
        std::swap(globals, other);
        times.push_back(spectrum.retention_time);
        seconds.push_back(clock->total_seconds() - start);
    }
    EXPECT_THAT(shown, testing::ElementsAre(1, 2, 3, 1, 2, 3, 1));
    EXPECT_THAT(times,
                testing::Pointwise(testing::DoubleNear(1e-9), std::vector<double>{0.5, 0.505, 8, 0.5, 0.505, 8, 0.5}));
    EXPECT_THAT(seconds,
                testing::Pointwise(testing::DoubleNear(1e-6), std::vector<double>{0, 0.3, 1.3, 1.4, 1.7, 2.7, 2.8}));
}

TEST_F(Replay, PutsBackLeftOutSamplesAsZeros) {
    const SpectrumText whole = plain_spectrum();
    SpectrumText sparse = whole;
    sparse.mz.clear();
    sparse.intensity.clear();
    std::vector<double> expected(whole.intensity.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (i % 100 > 60 || i % 100 == 30) continue;
        sparse.mz.push_back(whole.mz[i]);
        sparse.intensity.push_back(whole.intensity[i]);
        expected[i] = whole.intensity[i];
    }
    expected.resize(361);  // the last sample that is there
    play({sparse});
    const AcquiredSpectrum spectrum = next();
    EXPECT_THAT(spectrum.y_data.elements(), testing::ElementsAreArray(expected));
    ASSERT_EQ(spectrum.mass_data.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(spectrum.mass_data.elements()[i], whole.mz[i], 0.01 * (whole.mz[1] - whole.mz[0]));
}

TEST_F(Replay, KeepsTheLawForSpectraThatStartElsewhere) {
    const SpectrumText whole = spectrum_number(1, 0);
    SpectrumText part = spectrum_number(2, 1);
    part.mz.assign(whole.mz.begin() + 150, whole.mz.begin() + 170);
    part.intensity.assign(20, 7);
    play({whole, part});
    const double start_ns = next().start_time_ns;
    const auto law = globals->calibrations().calibration(0);
    const AcquiredSpectrum second = next();
    EXPECT_EQ(globals->calibrations().calibration(0), law);
    EXPECT_EQ(second.mass_data.size(), 20u);
    EXPECT_NEAR(second.start_time_ns, start_ns + 150 * globals->sampling_interval_seconds() * 1e9, 1e-6);
}

TEST_F(Replay, LendsCalibrationsThatClientsMayReplace) {
    SpectrumText second = spectrum_number(2, 1);
    for (double& mass : second.mz) mass *= 1.01;  // another law
    play({spectrum_number(1, 0), second});
    const auto mass_at_start = [&](const AcquiredSpectrum& spectrum) {
        return globals->calibrations().calibration(0)->mass_from_time(spectrum.start_time_ns);
    };
    for (int i = 0; i < 4; ++i) {
        const AcquiredSpectrum spectrum = next();
        EXPECT_NEAR(mass_at_start(spectrum) / spectrum.mass_data.at(0), 1, 1e-7) << i;
    }
    CalibrationCoefficients own = globals->calibrations().calibration(0)->coefficients();
    own.A *= 1.1;
    globals->calibrations().calibration(0)->set_coefficients(own);
    next();
    next();
    EXPECT_EQ(globals->calibrations().calibration(0)->coefficients(), own);
}

TEST_F(Replay, StartsWithTheInstrumentOfTheRecording) {
    SpectrumText spectrum = plain_spectrum();
    spectrum.parameters = R"(<referenceableParamGroupRef ref="g"/><cvParam accession="MS:1000129"/>)";
    play({spectrum}, R"(<referenceableParamGroupList count="1"><referenceableParamGroup id="g">
        <cvParam accession="MS:1000579"/><cvParam accession="MS:1000128"/></referenceableParamGroup>
        </referenceableParamGroupList><instrumentConfigurationList><instrumentConfiguration><componentList>
        <source><cvParam accession="MS:1000070"/></source><detector>
        <cvParam accession="MS:1000029" value="2000000000" unitAccession="UO:0000106"/></detector></componentList>
        </instrumentConfiguration></instrumentConfigurationList>)");
    SetpointTable& setpoints = globals->setpoints();
    EXPECT_THAT(told, testing::IsEmpty());
    EXPECT_TRUE(raised([&] { setpoints.write(117, 0, 0, std::int32_t{12}); }).starts_with("5|Recording|"));
    for (const auto& [index, value] : {std::pair{119, 1.0}, {117, 7.0}, {18, 2.0}, {160, 10000.0}, {135, 1700.0}})
        EXPECT_EQ(to_double(setpoints.value(index, 0, 0)), value) << index;
    EXPECT_EQ(globals->source_type(), "APCI");
    EXPECT_DOUBLE_EQ(globals->sampling_interval_seconds(), 0.5e-9);
}

TEST_F(Replay, NamesTheRecordingThatItCannotPlayWhenItIsFirstNeeded) {
    const auto refusal = [&](const std::string& text) {
        disk->put("/base/recording.mzML", text);
        layer = make_replay("/base/recording.mzML", "/base", {}, disk, clock);
        EXPECT_EQ(layer->create_path_information()->base_folder(), "/base");
        return raised([&] { layer->create_globals(); });
    };
    SpectrumText wide = plain_spectrum();
    wide.mz = {100, 100.0009, 100.0018, 1e12};
    wide.intensity = {1, 2, 3, 4};
    std::vector<std::string> texts{recording_text({wide})};
    for (const char* setpoint :
         {R"(name="setpoint MassRange" value="1e12")", R"(name="setpoint MassRange" value="low")"}) {
        std::string text = recording_text({plain_spectrum()});
        texts.push_back(text.insert(text.find("<spectrumList"), "<userParam " + std::string(setpoint) + "/>"));
    }
    for (const std::string& text : texts)
        EXPECT_THAT(refusal(text), testing::StartsWith("-904|RecordingReader|recording [/base/recording.mzML]"));
    std::string text = recording_text({plain_spectrum()});
    text.insert(text.find("<spectrumList"), R"(<userParam name="setpoint Warp" value="1"/>)");
    EXPECT_EQ(refusal(text), "no error");
    play({plain_spectrum(), plain_spectrum()});
    EXPECT_THAT(told,
                testing::ElementsAre("recording [/base/recording.mzML]: sampling interval not stated: taken as 1 ns"));
}

}  // namespace

}  // namespace korvane
