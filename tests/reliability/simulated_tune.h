// A short tune on the simulated instrument, whose log tells all that was measured.
#pragma once

#include <sstream>

#include "instrument/simulator/simulator.h"
#include "korvane/abort_helper.h"
#include "korvane/cal_mass_list.h"
#include "korvane/embedded.h"
#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "korvane/tune_params_xml.h"
#include "korvane/tune_prefs_xml.h"
#include "platform/automation_arithmetic.h"
#include "support/test_platform.h"

namespace korvane {

/// A simulated instrument on a base folder of its own, and a short tune on it.
class SimulatedTune {
public:
    explicit SimulatedTune(std::uint64_t seed, double start_second = 36000)
        : clock_(std::make_shared<VirtualClock>(start_second)) {
        create_base_folder(base());
        auto files = make_system_files();
        auto tracers = std::make_shared<RecordingTracerFactory>();
        auto simulator = make_simulator(
            {.base_folder = base().string(), .seed = seed, .scene_path = {}, .state_path = {}}, files, clock_);
        platform_ = {simulator, files, clock_, std::make_shared<RecordingMessageBox>(), tracers};
    }

    /// The tune log and what was measured, as one text.
    std::string run() {
        use_stores();
        TuneGlobals globals(platform_);
        SpectrumParser parser(platform_);
        globals.WriteLineToTuneLogFile("tune begins");
        parser.VerifyInstrumentIsShowingValidCalibrantSpectrum();
        const VariantMatrix<PeakInfo> peaks = parser.GetPeakInfoForCalibrantMasses();
        for (std::size_t i = 0; i < peaks.rows(); ++i)
            globals.WriteLineToTuneLogFile(number_text(peaks.at(i, 0).pkCentroid) + " " +
                                           number_text(peaks.at(i, 0).pkHeight));
        const std::int32_t capillary_voltage = globals.GetSourceSpecificVCapSetpointIndex();
        for (const bool fast : {false, true}) {
            parser.set_fast_search(fast);
            const double value = parser.BinaryAdjustAbundanceDownUsingThisSetpoint(capillary_voltage, 622.029, 20000,
                                                                                   30, true, 1000, 4000, 500);
            globals.WriteLineToTuneLogFile("adjusted to " + number_text(value));
        }
        return read_text(globals.tune_log_path()) + read_text(parser.tune_log_path());
    }

    std::filesystem::path base() const { return folder_.path() / "base"; }

private:
    void use_stores() {
        clsTunePrefsXML preferences(platform_);
        preferences.WriteTunePreference("LogSetpointTraffic", "Yes");
        clsTuneParamsXML parameters(platform_);
        parameters.WriteTuneParamValue("RampParams", "MinimumAcceptableAbundance", "1500");
        AbortHelper abort(platform_);
        abort.TriggerAbort();
        abort.Reset();
        CalMassList list(platform_);
        const std::string file = (base() / "MassLists" / "default_calibration_mass_list.xml").string();
        list.OpenMassListFile(file);
        list.SaveMassListToFile(file);
    }

    TemporaryFolder folder_;
    std::shared_ptr<VirtualClock> clock_;
    Platform platform_;
};

/// Without the lines that tell a time.
inline std::string times_aside(const std::string& log) {
    std::string kept;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with("===TUNE ")) kept += line + "\n";
    return kept;
}

}  // namespace korvane
