// A scripted instrument with a mass axis and calibrant peaks, as the spectrum routines see it.
#pragma once

#include "korvane/spectrum_parser.h"
#include "platform/text.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {

/// Mass m arrives at 1000 sqrt(m) ns. The axis has a sample every 10 ns from 5003 ns on, so that windows in round
/// numbers end between samples. Calibrants 100, 400, 900, 1600 and 2500; all peaks 5000 high at first.
struct SpectrumWorld {
    SpectrumWorld();

    static double time_ns(double mass);
    /// Gives the peak of a mass this height; 0 takes it away.
    void set_peak(double mass, double height);
    /// What `instrument().acquire` does until a test replaces it: a populated spectrum of the polarity set.
    void fill(AcquiredSpectrum& spectrum);
    ScriptedState& instrument() { return test.instrument(); }
    Platform platform() const { return test.platform(); }
    void request_abort() { test.preference("AbortFlag", "1"); }
    std::vector<std::string> tune_log() const { return test.log_lines("TuneLog_"); }
    /// The lines that a routine traced itself.
    std::vector<std::string> traced_by(const std::string& routine);
    /// The lines of the instrument's journal that start so.
    std::vector<std::string> journal_of(const std::string& start);
    /// The trace, indented by depth ("> Name" entries, no exits), with the lines of the tune log where they were
    /// written ("log: text").
    std::string transcript();

    static constexpr double start_ns = 5003;
    static constexpr double interval_ns = 10;
    static constexpr int adjustable_setpoint = 50;
    static constexpr int transients_setpoint = 127;
    static constexpr int capillary_voltage_setpoint = 104;

    TestPlatform test;
    std::vector<double> masses{100, 400, 900, 1600, 2500};
    VariantArray<double> axis;
    VariantArray<double> samples;
    ScriptedPeaks peaks;
};

/// The world and a parser on it.
struct ParserWorld : SpectrumWorld {
    ParserWorld() { test.trace().lines.clear(); }
    SpectrumParser parser{platform()};
};

/// Lines as one text, every line ended, after a line break: the shape of a raw string over several lines.
std::string joined(const std::vector<std::string>& lines);

}  // namespace korvane
