// The content of a recording, as the file states it, and how it is read: the profile spectra of an mzML file.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "korvane/embedded_parts.h"
#include "korvane/error.h"
#include "korvane/records.h"
#include "platform/files.h"
#include "platform/text.h"

namespace korvane::replay {

/// Where in a recording something is wrong.
struct RecordingPlace {
    std::string file;
    std::string spectrum_id;  ///< empty for the file as a whole
    const char* source = "RecordingReader";

    /// Raises error -904: "recording [file], spectrum [id]: what".
    template <class... Pieces>
    [[noreturn]] void fail(const Pieces&... what) const {
        const std::string spectrum = spectrum_id.empty() ? "" : ", spectrum [" + spectrum_id + "]";
        throw Error(error_number::file_or_element, source, text_of("recording [", file, "]", spectrum, ": ", what...));
    }
};

/// A mass-time law: coefficients in nanoseconds and the use flags, element p for the power p.
struct StatedCalibration {
    CalibrationCoefficients coefficients;
    std::vector<std::int32_t> use_flags;
    friend bool operator==(const StatedCalibration&, const StatedCalibration&) = default;
};

/// What a spectrum states of its axis.
struct RecordedAxis {
    std::vector<double> mz;  ///< ascending; samples of zero counts may be left out
    std::optional<double> sampling_interval_ns;
    // What only recordings of our own state.
    std::optional<double> first_flight_time_ns;
    std::optional<StatedCalibration> calibration;
    friend bool operator==(const RecordedAxis&, const RecordedAxis&) = default;
};

struct RecordedSpectrum : RecordedAxis {
    std::string id;
    std::int32_t ms_level = 1;
    PolaritySetpoint polarity = PolaritySetpoint::Positive;
    double scan_start_minutes = 0;
    std::vector<double> intensity;  ///< counts, one per m/z
    PeakFinderOptions peak_finder;  ///< what the instrument told its peak finder; only in recordings of our own
};

/// What had to be found out or assumed, a line each, with the number of spectra that it holds for.
class Notes {
public:
    template <class... Pieces>
    void add(const Pieces&... pieces) {
        const std::string what = text_of(pieces...);
        const auto known = std::ranges::find(counted_, what, &std::pair<std::string, int>::first);
        known == counted_.end() ? void(counted_.emplace_back(what, 1)) : void(++known->second);
    }
    /// "polarity not stated: taken as positive (3 spectra)".
    std::vector<std::string> lines() const {
        std::vector<std::string> all;
        for (const auto& [what, count] : counted_)
            all.push_back(count == 1 ? what : what + " (" + std::to_string(count) + " spectra)");
        return all;
    }

private:
    std::vector<std::pair<std::string, int>> counted_;
};

/// What a recording states beside its spectra.
struct RecordingHead {
    /// Hands the notes to whoever wants them.
    void tell(const RecordingOptions& options) const {
        if (options.tell)
            for (const std::string& line : notes.lines()) options.tell("recording [" + file + "]: " + line);
    }

    std::string file;
    Notes notes;
    std::int32_t source_code = 0;             ///< as setpoint 117 has it
    std::map<std::string, double> setpoints;  ///< by internal name; only recordings of our own state them
};

struct Recording : RecordingHead {
    std::optional<double> sampling_interval_ns;  ///< of the digitiser, where the file states its frequency
    std::vector<RecordedSpectrum> spectra;
};

/// Whether m/z are spaced as samples are: most neighbouring distances nearly alike, which those of centroids are not.
inline bool is_spaced_as_profile(const std::vector<double>& mz) {
    constexpr double alike = 0.1;
    constexpr std::size_t fewest = 4;  // that tell anything
    std::size_t even = 0;
    for (std::size_t i = 2; i < mz.size(); ++i)
        even += std::abs((mz[i] - mz[i - 1]) / (mz[i - 1] - mz[i - 2]) - 1) < alike;
    return mz.size() < fewest || 2 * even >= mz.size() - 2;
}
/// Fails for numbers that are not finite, and for m/z that do not ascend from above 0.
inline void check_samples(const RecordedSpectrum& spectrum, const RecordingPlace& place) {
    double below = 0;
    for (std::size_t i = 0; i < spectrum.mz.size(); below = spectrum.mz[i++]) {
        if (!std::isfinite(spectrum.mz[i]) || !(spectrum.mz[i] > below))
            place.fail("m/z [", spectrum.mz[i], "] of sample ", i, " does not lie above [", below, "]");
        if (!std::isfinite(spectrum.intensity[i])) place.fail("intensity of sample ", i, " is not a finite number");
    }
}

/// Samples of one spectrum, and of all spectra of a recording, beyond which a file is refused: its arrays would not fit
/// into memory, and no flight tube gives them.
inline constexpr std::int64_t largest_spectrum_samples = 10'000'000;
inline constexpr std::int64_t largest_recording_samples = 200'000'000;
/// Samples of an axis for each that is there; an axis with more holes is no profile with its zeros left out.
inline constexpr std::int64_t most_samples_for_one = 1000;
/// Bytes of a compressed file's content, for each of its own.
inline constexpr std::size_t most_bytes_for_one = 100;

/// Reads mzML 1.1, with or without the index around it, packed by gzip or not. What the file does not say is found out
/// or assumed, and stands in the notes: the MS level, the polarity, whether a spectrum is a profile (by its spacing),
/// start times, the sampling frequency. Spectra of other levels, centroids and empty spectra are passed over.
///
/// Error -904 from "RecordingReader", naming the file, the spectrum and the item, for: a file that cannot be read, is a
/// folder, empty, not XML or not mzML; no profile spectrum of the level; both polarities in one spectrum; arrays
/// missing, damaged, of another length than the spectrum or encoded in an unknown way; m/z that do not ascend from
/// above 0; numbers that are not finite; more samples than `recording.h` allows.
Recording read_recording(Files& files, const std::string& file, const RecordingOptions& options = {});
/// The same of a file's content.
Recording parse_recording(std::string bytes, const std::string& file, const RecordingOptions& options);
/// What the file holds, unpacked.
std::string recording_bytes(Files& files, const std::string& file);

}  // namespace korvane::replay
