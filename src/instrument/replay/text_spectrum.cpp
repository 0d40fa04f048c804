#include "instrument/replay/text_spectrum.h"

#include <charconv>
#include <optional>

namespace korvane::replay {

namespace {

/// The numbers of a line; nothing where it holds anything else, or not two.
std::optional<std::pair<double, double>> two_numbers(std::string_view line) {
    constexpr std::string_view between = " \t,;\r";
    double numbers[2];
    for (double& number : numbers) {
        line.remove_prefix(std::min(line.find_first_not_of(between), line.size()));
        const auto [end, fault] = std::from_chars(line.data(), line.data() + line.size(), number);
        if (fault != std::errc()) return std::nullopt;
        line.remove_prefix(static_cast<std::size_t>(end - line.data()));
        if (!line.empty() && between.find(line.front()) == std::string_view::npos) return std::nullopt;
    }
    if (line.find_first_not_of(between) != std::string_view::npos) return std::nullopt;
    return std::pair(numbers[0], numbers[1]);
}

}  // namespace

Recording parse_text_spectrum(std::string_view text, const std::string& file) {
    const RecordingPlace place{file, {}};
    RecordedSpectrum spectrum;
    bool is_first = true;
    for (std::size_t number = 1, begin = 0; begin < text.size(); ++number) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const std::string_view line = text.substr(begin, end - begin);
        begin = end + 1;
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string_view::npos || line[first] == '#') continue;
        const auto sample = two_numbers(line);
        if (!sample && !is_first)
            place.fail("line " + std::to_string(number) + " [" + std::string(line.substr(0, 60)) +
                       "] is not the m/z and the counts of a sample");
        is_first = false;
        if (!sample) continue;
        spectrum.mz.push_back(sample->first);
        spectrum.intensity.push_back(sample->second);
    }
    if (spectrum.mz.empty()) place.fail("this is neither mzML nor a text of m/z and counts, a line a sample");
    check_masses(spectrum.mz, place);
    check_intensities(spectrum.intensity, place);
    if (!is_spaced_as_profile(spectrum.mz)) place.fail("there is no profile spectrum: centroids, by their spacing");
    Recording recording;
    recording.file = file;
    recording.spectra.push_back(std::move(spectrum));
    return recording;
}

}  // namespace korvane::replay
