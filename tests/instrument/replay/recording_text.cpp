#include "recording_text.h"

#include <cmath>

namespace korvane {

namespace {

std::string array_text(const std::vector<double>& numbers, const std::string& parameters) {
    return R"(<binaryDataArray><cvParam accession="MS:1000523"/><cvParam accession="MS:1000574"/>)" + parameters +
           "<binary>" + replay::encode_numbers(numbers, {}) + "</binary></binaryDataArray>\n";
}

}  // namespace

std::string SpectrumText::text() const {
    return "<spectrum index=\"0\" id=\"" + id + "\" defaultArrayLength=\"" + std::to_string(mz.size()) + "\">" +
           parameters + "<scanList count=\"1\"><scan>" + scan +
           "</scan></scanList>\n<binaryDataArrayList count=\"2\">" +
           array_text(mz, array_parameters + R"(<cvParam accession="MS:1000514"/>)") +
           array_text(intensity, array_parameters + R"(<cvParam accession="MS:1000515"/>)") +
           "</binaryDataArrayList></spectrum>\n";
}

std::string recording_text(const std::vector<SpectrumText>& spectra, const std::string& before_run) {
    std::string list;
    for (const SpectrumText& spectrum : spectra) list += spectrum.text();
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<mzML xmlns=\"http://psi.hupo.org/ms/mzml\" "
           "version=\"1.1.0\">" +
           before_run + "<run id=\"r\"><spectrumList count=\"" + std::to_string(spectra.size()) + "\">\n" + list +
           "</spectrumList></run></mzML>";
}

std::vector<double> masses_at(double start_ns, double interval_ns, std::size_t count,
                              const std::function<double(double)>& mass_of_time) {
    std::vector<double> masses(count);
    for (std::size_t i = 0; i < count; ++i) masses[i] = mass_of_time(start_ns + static_cast<double>(i) * interval_ns);
    return masses;
}

SpectrumText plain_spectrum() {
    SpectrumText spectrum;
    spectrum.mz = masses_at(40000, 1, 400, [](double t) { return std::pow(4.5e-4 * t, 2); });
    for (int i = 0; i < 400; ++i)
        spectrum.intensity.push_back(std::round(30 + 9000 * std::exp(-0.1 * std::pow(i - 120.3, 2)) +
                                                4000 * std::exp(-0.1 * std::pow(i - 300.7, 2))));
    return spectrum;
}

}  // namespace korvane
