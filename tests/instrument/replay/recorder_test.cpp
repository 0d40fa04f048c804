#include "instrument/replay/recorder.h"

#include <gmock/gmock.h>

#include <cmath>
#include <pugixml.hpp>
#include <random>

#include "instrument/masstime/square_law_calibration.h"
#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/replay/replay_layer.h"
#include "recording_text.h"
#include "support/virtual_clock.h"

namespace korvane {

namespace {

/// An instrument whose spectra hold peaks at random places on a noisy baseline.
class Recorder : public testing::Test {
protected:
    static constexpr double interval_ns = 0.5;
    static constexpr std::size_t samples = 40000;

    Recorder() {
        ScriptedState& state = *instrument.state;
        state.setpoints[18] = {.value = 2, .type = 3, .name = "Sampling Rate"};
        state.setpoints[119] = {.value = 0, .type = 3, .name = "Polarity"};
        state.setpoints[160] = {.value = 2500, .type = 3, .name = "Transients"};
        state.setpoints[128] = {.value = 2, .type = 3, .name = "Mass Range"};
        state.setpoints[9001] = {.value = 1, .name = "Of this instrument alone"};
        CalibrationCoefficients law{.A = 4.5e-4, .B = 21.25, .C = 1.5e-16, .D = -3e-22};
        for (const std::int32_t polarity : {0, 1}) {
            law.A *= 1.0001;
            // The powers 3 and 4, in flags that start at 0 or at 1.
            std::vector<std::int32_t> flags{0, 0, 0, 1, 1};
            flags.erase(flags.begin(), flags.begin() + polarity);
            state.calibrations[polarity] =
                std::make_shared<SquareLawCalibration>(law, VariantArray<std::int32_t>(flags, polarity));
        }
        // What this instrument knows of its peaks, and a finder that is not told would find otherwise.
        state.make_finder = [] {
            PeakFinderOptions options;
            options.width = WidthModel{30000, 3};
            options.counts_per_ion = 200;
            options.tail_fraction = 0.1;
            options.saturation_counts = 15000;
            return make_peak_finder(options);
        };
        state.sampling_interval_seconds = interval_ns * 1e-9;
        state.acquire = [this](AcquiredSpectrum& spectrum, int number) { acquire(spectrum, number); };
    }

    void acquire(AcquiredSpectrum& spectrum, int number) {
        if (empty(number)) return;
        const std::int32_t polarity = number % 2;
        spectrum.start_time_ns = 30000 + std::uniform_real_distribution<double>(0, 1)(random);
        spectrum.retention_time = 0.3 * number;
        std::vector<double> times(samples), counts(samples);
        for (std::size_t i = 0; i < samples; ++i) {
            times[i] = spectrum.start_time_ns + static_cast<double>(i) * interval_ns;
            counts[i] = std::round(std::normal_distribution<double>(300, 15)(random)) + fraction;
        }
        for (int peak = 0; peak < 20; ++peak) {
            const double centre = 300 + std::uniform_real_distribution<double>(0, samples - 600.0)(random);
            for (std::size_t i = 0; i < samples; ++i) {
                const double off = (static_cast<double>(i) - centre) / 3;
                if (std::abs(off) < 5) counts[i] += std::round(20000 * std::exp(-0.5 * off * off));
            }
        }
        spectrum.mass_data = instrument.state->calibrations[polarity]->masses_from_times(times);
        spectrum.y_data = counts;
        spectrum.meta_data = std::vector<InstrumentValue>{0, polarity};
    }

    std::shared_ptr<InstrumentLayer> replay() { return make_replay({file, folder.path()}, files, clock); }

    TemporaryFolder folder;
    std::string file = folder.file("run.mzML");
    std::shared_ptr<Files> files = make_system_files();
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    ScriptedLayer instrument;
    std::mt19937 random{7};
    double fraction = 0;
    std::function<bool(int)> empty = [](int) { return false; };
};

TEST_F(Recorder, ReplayShowsWhatTheInstrumentShowed) {
    std::vector<AcquiredSpectrum> shown;
    instrument.state->acquire = [&](AcquiredSpectrum& spectrum, int number) {
        acquire(spectrum, number);
        shown.push_back(spectrum);
    };
    record_spectra(instrument, file, 4, *files);
    const auto replayed = replay();
    const auto globals = replayed->create_globals();
    for (const AcquiredSpectrum& original : shown) {
        AcquiredSpectrum copy;
        globals->control()->GetNextSpectrum(copy);
        EXPECT_EQ(copy.start_time_ns, original.start_time_ns);
        EXPECT_EQ(copy.retention_time, original.retention_time);
        EXPECT_TRUE(std::ranges::equal(copy.y_data.elements(), original.y_data.elements()));
        EXPECT_TRUE(std::ranges::equal(copy.mass_data.elements(), original.mass_data.elements()));
        const auto polarity = std::get<std::int32_t>(original.meta_data.at(1));
        EXPECT_EQ(globals->calibrations().calibration(polarity)->coefficients(),
                  instrument.state->calibrations[polarity]->coefficients());
        const auto finder = replayed->create_peak_finder();
        const PeakFinderOptions& options = dynamic_cast<EmbeddedPeakFinder&>(*finder).options();
        EXPECT_EQ(options.width->resolution_limit, 30000);
        EXPECT_EQ(options.width->detector_fwhm_ns, 3);
        EXPECT_EQ(options.counts_per_ion, 200);
        EXPECT_EQ(options.tail_fraction, 0.1);
        EXPECT_EQ(options.saturation_counts, 15000);
        EXPECT_FALSE(options.ion_height_spread || options.ion_pulse_fwhm_ns || options.tail_pulse_part);
    }
    for (const auto& [index, value] : {std::pair{160, 2500}, {128, 2}, {119, 1}})  // the polarity of the first spectrum
        EXPECT_EQ(globals->setpoints().value(index, 0, 0), InstrumentValue(value));
}

TEST_F(Recorder, RecordingAReplayGivesTheSameFile) {
    fraction = 0.1;  // not a 32-bit float
    record_spectra(instrument, file, 3, *files);
    const std::string again = folder.file("again.mzML");
    record_spectra(*replay(), again, 3, *files);
    const auto spectra = [](const std::string& path) {
        const std::string text = read_text(path);
        return text.substr(text.find("<spectrumList"));
    };
    EXPECT_EQ(spectra(again), spectra(file));
}

TEST_F(Recorder, FitsTheAxisWhereTheCalibrationIsNotTheOneOfTheSpectra) {
    record_spectra(instrument, file, 1, *files);
    const auto original = replay()->create_globals()->calibrations().calibration(1)->coefficients();
    CalibrationCoefficients stale = original;
    stale.A *= 1.00002;
    instrument.state->calibrations[1]->set_coefficients(stale);
    const auto law = std::make_shared<SquareLawCalibration>(original, instrument.state->calibrations[1]->use_flags());
    instrument.state->acquire = [&](AcquiredSpectrum& spectrum, int) {
        acquire(spectrum, 1);
        std::vector<double> times(samples);
        for (std::size_t i = 0; i < samples; ++i)
            times[i] = spectrum.start_time_ns + static_cast<double>(i) * interval_ns;
        spectrum.mass_data = law->masses_from_times(times);
    };
    record_spectra(instrument, file, 1, *files);
    const auto fitted = replay()->create_globals()->calibrations().calibration(1);
    for (const double time_ns : {30001.0, 40000.0, 50000.0})
        EXPECT_NEAR(fitted->time_from_mass(law->mass_from_time(time_ns)), time_ns, 0.01 * interval_ns);
}

TEST_F(Recorder, StatesWhatTheStandardAsksFor) {
    record_spectra(instrument, file, 2, *files);
    pugi::xml_document document;
    ASSERT_TRUE(document.load_file(file.c_str()));
    const auto value = [&](const std::string& accession) -> std::string {
        return document.select_node(("//cvParam[@accession='" + accession + "']/@value").c_str()).attribute().value();
    };
    EXPECT_EQ(value("MS:1000511"), "1");
    EXPECT_EQ(value("MS:1000016"), "0.3");
    EXPECT_EQ(value("MS:1000029"), "2000000000");
    EXPECT_EQ(document.select_nodes("//spectrum").size(), 2u);
    for (const char* present :
         {"//spectrum[1]/cvParam[@accession='MS:1000129']", "//spectrum[@index='1' and @id='scan=2']",
          "//spectrum[2]/cvParam[@accession='MS:1000130']", "//analyzer/cvParam[@accession='MS:1000084']",
          "//spectrum/cvParam[@accession='MS:1000128']", "//software[@id='korvane']",
          "//source/cvParam[@accession='MS:1000073']", "//scan/cvParam[@unitAccession='UO:0000031']",
          "//spectrumList[@count='2']", "//cvParam[@accession='MS:1000521']"})
        EXPECT_TRUE(document.select_node(present)) << present;
    double ions = 0;
    const auto spectrum = document.select_node("//spectrum").node();
    for (const double count : replay::decode_numbers(
             spectrum.select_node(".//binary[../cvParam/@accession='MS:1000515']").node().text().get(), {false, true},
             samples, {file, ""}, "intensity"))
        ions += count;
    EXPECT_EQ(std::stod(value("MS:1000285")), ions);
    EXPECT_LT(std::stod(value("MS:1000528")), std::stod(value("MS:1000527")));
}

TEST_F(Recorder, AsksAgainForEmptySpectraButNotForEver) {
    empty = [](int number) { return number < 4; };
    record_spectra(instrument, file, 1, *files);
    EXPECT_EQ(instrument.state->spectra, 4);
    empty = [](int) { return true; };
    EXPECT_THAT(raised([&] { record_spectra(instrument, file, 1, *files); }),
                testing::StartsWith("-904|RecordingWriter|recording [" + file + "]"));
}

TEST_F(Recorder, KeepsTheOldFileWhenItFails) {
    write_text(file, "old");
    const auto fails = [&](const std::string& path, int count) {
        return std::stoi(raised([&] { record_spectra(instrument, path, count, *files); }));
    };
    EXPECT_EQ(fails(file, 0), 5);
    EXPECT_EQ(fails(folder.file("no/such/folder.mzML"), 1), -904);
    instrument.state->meta_description = std::vector<std::string>{"Experiment", "Polarity"};
    EXPECT_EQ(fails(file, 1), -904);
    instrument.state->meta_description = std::vector<std::string>{"Experiment", "Polarity (S)"};
    instrument.state->acquire = [&](AcquiredSpectrum& spectrum, int number) {
        acquire(spectrum, number);
        std::vector<double> falling(spectrum.mass_data.elements().rbegin(), spectrum.mass_data.elements().rend());
        spectrum.mass_data = falling;
    };
    EXPECT_EQ(fails(file, 1), -904);
    instrument.state->fault_at = instrument.state->calls + 3;
    EXPECT_EQ(fails(file, 1), -4711);
    instrument.state->fault_at.reset();
    instrument.state->has_control = false;
    EXPECT_EQ(fails(file, 1), 91);
    EXPECT_EQ(read_text(file), "old");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

}  // namespace

}  // namespace korvane
