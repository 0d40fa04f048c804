#include "korvane/recording.h"

#include <gmock/gmock.h>

#include <pugixml.hpp>

#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/replay/replay_layer.h"
#include "instrument/simulator/simulator_bench.h"
#include "recording_text.h"
#include "support/scripted_instrument.h"

namespace korvane {

namespace {

constexpr const char* file = "/base/run.mzML";

// Spectra of both polarities under a law with terms, the first two empty.
const std::string scene = R"({"instrument": {"spectrum_start_ns": 40000, "spectrum_duration_ns": 8000,
    "random_phase": true}, "detector": {"statistics": "pulse"},
    "flight": {"use_flags": [0, 0, 0, 1, 1], "law": {"coefficients": [4.5e-4, 21.25, 1.5e-16, -3e-22]}},
    "faults": {"empty_spectra": {"first": 0, "count": 2}, "wrong_polarity": {"first": 3, "count": 1}},
    "setpoints": {"NumTransients2GHz": 2500, "MassRange": 2}})";

struct Recorder : testing::Test {
    std::shared_ptr<InstrumentLayer> replay(const char* path = file) {
        return make_replay(path, "/base", {}, bench.disk, bench.clock);
    }
    void record(std::shared_ptr<InstrumentLayer> layer, const std::string& path, int count) {
        Platform platform;
        platform.instrument = std::move(layer);
        platform.files = bench.disk;
        platform.clock = bench.clock;
        record_spectra(platform, path, count);
    }
    SimulatorBench bench{scene};
};

TEST_F(Recorder, ReplayShowsWhatTheInstrumentShowedAndRecordsToTheSameFile) {
    record(bench.layer, file, 3);
    SimulatorBench shown(scene);
    const auto replayed = replay();
    const auto globals = replayed->create_globals();
    for (const auto& [name, value] : {std::pair{"NumTransients2GHz", 2500}, {"MassRange", 2}, {"Polarity", 0}})
        EXPECT_EQ(globals->setpoints().value(globals->setpoints().index_of(name), 0, 0), InstrumentValue(value));
    for (int skipped = 0; skipped < 2; ++skipped) shown.acquire();
    for (const std::int32_t polarity : {0, 1, 0}) {
        const AcquiredSpectrum original = shown.acquire();
        AcquiredSpectrum copy;
        globals->control()->GetNextSpectrum(copy);
        EXPECT_EQ(copy.start_time_ns, original.start_time_ns);
        EXPECT_EQ(copy.retention_time, original.retention_time);
        EXPECT_TRUE(std::ranges::equal(copy.y_data.elements(), original.y_data.elements()));
        EXPECT_TRUE(std::ranges::equal(copy.mass_data.elements(), original.mass_data.elements()));
        EXPECT_EQ(globals->calibrations().calibration(polarity)->coefficients(),
                  shown.globals->calibrations().calibration(polarity)->coefficients());
        const auto finder = replayed->create_peak_finder(), same = shown.layer->create_peak_finder();
        const PeakFinderOptions& options = dynamic_cast<EmbeddedPeakFinder&>(*finder).options();
        const PeakFinderOptions& expected = dynamic_cast<EmbeddedPeakFinder&>(*same).options();
        EXPECT_EQ(options.width->resolution_limit, expected.width->resolution_limit);
        EXPECT_EQ(options.width->detector_fwhm_ns, expected.width->detector_fwhm_ns);
        for (const auto member : {&PeakFinderOptions::counts_per_ion, &PeakFinderOptions::ion_height_spread,
                                  &PeakFinderOptions::ion_pulse_fwhm_ns, &PeakFinderOptions::tail_fraction,
                                  &PeakFinderOptions::tail_pulse_part, &PeakFinderOptions::saturation_counts})
            EXPECT_EQ(options.*member, expected.*member);
    }
    record(replay(), "/base/again.mzML", 3);
    const auto spectra = [&](const char* path) {
        const std::string text = bench.disk->content(path).value();
        return text.substr(text.find("<spectrumList"));
    };
    EXPECT_EQ(spectra("/base/again.mzML"), spectra(file));
}

TEST_F(Recorder, FitsTheAxisWhereTheCalibrationIsNotTheOneOfTheSpectra) {
    record(bench.layer, file, 1);
    std::string text = bench.disk->content(file).value();
    bench.disk->put(file, text.replace(text.find("0.00045 "), 7, "0.00046"));
    const auto fitted = replay()->create_globals()->calibrations().calibration(0);
    const auto law = bench.globals->calibrations().calibration(0);
    for (const double time_ns : {40001.0, 44000.0, 47999.0})
        EXPECT_NEAR(fitted->time_from_mass(law->mass_from_time(time_ns)), time_ns, 0.01 * 0.5);
}

TEST_F(Recorder, StatesWhatTheStandardAsksFor) {
    record(bench.layer, file, 2);
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(bench.disk->content(file)->c_str()));
    for (const char* present :
         {"//spectrum[@index='1' and @id='scan=2']", "//spectrum[1]/cvParam[@accession='MS:1000130']",
          "//spectrum[2]/cvParam[@accession='MS:1000129']", "//spectrum/cvParam[@accession='MS:1000128']",
          "//spectrum/cvParam[@accession='MS:1000511' and @value='1']", "//software[@id='korvane']",
          "//scan/cvParam[@accession='MS:1000016' and @unitAccession='UO:0000031']",
          "//analyzer/cvParam[@accession='MS:1000084']", "//source/cvParam[@accession='MS:1000073']",
          "//detector/cvParam[@accession='MS:1000029' and @value='2000000000']", "//spectrumList[@count='2']",
          "//cvParam[@accession='MS:1000521']",
          "//spectrum/cvParam[@accession='MS:1000505']/@value < //spectrum/cvParam[@accession='MS:1000285']/@value",
          "//spectrum/cvParam[@accession='MS:1000528']/@value < //spectrum/cvParam[@accession='MS:1000527']/@value"})
        EXPECT_TRUE(pugi::xpath_query(present).evaluate_boolean(document)) << present;
}

// One misbehaviour of an instrument after the other: its error, and the file as it was.
TEST_F(Recorder, KeepsTheOldFileWhenItFails) {
    bench.disk->put(file, "old");
    ScriptedLayer instrument;
    ScriptedState& state = *instrument.state;
    state.setpoints[119] = {.name = "Polarity"};
    state.calibrations[0] = make_square_law_calibration({.A = 4.5e-4, .B = 20});
    std::vector<double> masses{100, 101, 102}, counts{1, 2, 3};
    InstrumentValue polarity = 0;
    state.acquire = [&](AcquiredSpectrum& spectrum, int) {
        spectrum.mass_data = masses;
        spectrum.y_data = counts;
        spectrum.meta_data = std::vector<InstrumentValue>{0, polarity};
    };
    const auto error = [&](const std::string& path = file, int count = 1) {
        return raised([&] { record({std::shared_ptr<void>(), &instrument}, path, count); });
    };
    const std::string start = "-904|RecordingWriter|recording [/base/run.mzML]: ";
    EXPECT_EQ(error(file, 0).substr(0, 2), "5|");
    counts = {1, 2};
    EXPECT_EQ(error(), start + "a spectrum has 3 masses and 2 abundances");
    masses = {100, 102, 101};
    counts = {1, 2, 3};
    EXPECT_EQ(error(), start + "m/z [101] of sample 2 does not lie above [102]");
    masses = counts = {};
    EXPECT_EQ(error(), start + "a spectrum has 0 masses and 0 abundances");
    masses = counts = {100, 101, 102};
    polarity = 7;
    EXPECT_EQ(error(), start + "the metadata give the polarity 7");
    state.meta_description = std::vector<std::string>{"Experiment", "Polarity"};
    EXPECT_EQ(error(), start + "the metadata do not tell the polarity");
    state.fault_at = state.calls + 3;
    EXPECT_EQ(error(), "-4711|Instrument|scripted fault");
    state.fault_at.reset();
    state.acquire = nullptr;
    EXPECT_EQ(error(), start + "the instrument shows no spectrum: 10 came empty");
    state.has_control = false;
    EXPECT_EQ(error().substr(0, 3), "91|");
    bench.disk->fault = MemoryDisk::Fault{.at = bench.disk->operations + 3, .stays = true};
    EXPECT_EQ(raised([&] { record(bench.layer, file, 9); }).substr(0, 49), start);
    EXPECT_TRUE(bench.disk->content(file) == "old");
}

}  // namespace

}  // namespace korvane
