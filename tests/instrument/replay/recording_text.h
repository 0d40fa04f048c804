// Recordings as another program may write them, whole or damaged.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "instrument/replay/binary_array.h"
#include "instrument/replay/recording.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {

/// The parts of a spectrum element, so that a test can bend one.
struct SpectrumText {
    std::string id = "scan=1";
    std::vector<double> mz, intensity;
    std::string parameters =
        R"(<cvParam accession="MS:1000511" value="1"/><cvParam accession="MS:1000128"/><cvParam accession="MS:1000130"/>)";
    std::string scan = R"(<cvParam accession="MS:1000016" value="1.5" unitAccession="UO:0000031"/>)";
    std::string array_parameters;  ///< further ones of both arrays

    std::string text() const;
};

/// A recording of spectra; `before_run` stands after the opening mzML tag.
std::string recording_text(const std::vector<SpectrumText>& spectra, const std::string& before_run = {});

/// The m/z of `count` samples under m = (A (t - B))^2 + further terms, given as a function of t.
std::vector<double> masses_at(double start_ns, double interval_ns, std::size_t count,
                              const std::function<double(double)>& mass_of_time);

/// A spectrum of 400 samples at 1 ns under A = 4.5e-4, B = 0, from 40 us, with two peaks.
SpectrumText plain_spectrum();

}  // namespace korvane
