// Recordings as another program may write them, whole or damaged.
#pragma once

#include <functional>

#include "instrument/replay/binary_array.h"
#include "instrument/replay/recording.h"
#include "support/raised.h"
#include "support/test_platform.h"

namespace korvane {

inline std::string array_text(const std::vector<double>& numbers, const std::string& parameters) {
    return R"(<binaryDataArray><cvParam accession="MS:1000523"/><cvParam accession="MS:1000574"/>)" + parameters +
           "<binary>" + replay::encode_numbers(numbers, {}) + "</binary></binaryDataArray>\n";
}

/// The parts of a spectrum element, so that a test can bend one.
struct SpectrumText {
    std::string id = "scan=1";
    std::vector<double> mz, intensity;
    std::string parameters =
        R"(<cvParam accession="MS:1000511" value="1"/><cvParam accession="MS:1000128"/><cvParam accession="MS:1000130"/>)";
    std::string scan = R"(<cvParam accession="MS:1000016" value="1.5" unitAccession="UO:0000031"/>)";
    std::string array_parameters;  ///< further ones of both arrays

    std::string text() const {
        return "<spectrum index=\"0\" id=\"" + id + "\" defaultArrayLength=\"" + std::to_string(mz.size()) + "\">" +
               parameters + "<scanList count=\"1\"><scan>" + scan +
               "</scan></scanList>\n<binaryDataArrayList count=\"2\">" +
               array_text(mz, array_parameters + R"(<cvParam accession="MS:1000514"/>)") +
               array_text(intensity, array_parameters + R"(<cvParam accession="MS:1000515"/>)") +
               "</binaryDataArrayList></spectrum>\n";
    }
};

/// A recording of spectra; `before_run` stands after the opening mzML tag.
inline std::string recording_text(const std::vector<SpectrumText>& spectra, const std::string& before_run = {}) {
    std::string list;
    for (const SpectrumText& spectrum : spectra) list += spectrum.text();
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<mzML xmlns=\"http://psi.hupo.org/ms/mzml\" "
           "version=\"1.1.0\">" +
           before_run + "<run id=\"r\"><spectrumList count=\"" + std::to_string(spectra.size()) + "\">\n" + list +
           "</spectrumList></run></mzML>";
}

/// The m/z of `count` samples under m = (A (t - B))^2 + further terms, given as a function of t.
inline std::vector<double> masses_at(double start_ns, double interval_ns, std::size_t count,
                                     const std::function<double(double)>& mass_of_time) {
    std::vector<double> masses(count);
    for (std::size_t i = 0; i < count; ++i) masses[i] = mass_of_time(start_ns + static_cast<double>(i) * interval_ns);
    return masses;
}

/// A spectrum of 400 samples at 1 ns under A = 4.5e-4, B = 0, from 40 us, with two peaks.
inline SpectrumText plain_spectrum() {
    SpectrumText spectrum;
    spectrum.mz = masses_at(40000, 1, 400, [](double t) { return std::pow(4.5e-4 * t, 2); });
    for (int i = 0; i < 400; ++i)
        spectrum.intensity.push_back(std::round(30 + 9000 * std::exp(-0.1 * std::pow(i - 120.3, 2)) +
                                                4000 * std::exp(-0.1 * std::pow(i - 300.7, 2))));
    return spectrum;
}

}  // namespace korvane
