// All peaks: of the instrument's next spectrum, or of the spectra of a file.
#include <array>
#include <cstdio>
#include <iostream>

#include "commands.h"
#include "korvane/embedded_parts.h"
#include "korvane/forwarding.h"
#include "korvane/tune_globals.h"
#include "run.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

namespace korvane::program {

namespace {

struct PeaksOptions {
    std::string file;
    double from = 0, to = std::numeric_limits<double>::infinity(), min_height = -to;
    std::int64_t spectrum = 0;

    bool takes(const PeakInfo& amu) const {
        return amu.pkCentroid >= from && amu.pkCentroid <= to && amu.pkHeight >= min_height;
    }
};

/// Standard input in the place of a file.
struct StandardInput final : ForwardingFiles {
    using ForwardingFiles::ForwardingFiles;

    FileStatus status(const std::string&) override { return {.exists = true}; }
    void read(const std::string&, std::string& bytes) override {
#ifdef _WIN32
        _setmode(_fileno(stdin), _O_BINARY);
#endif
        constexpr std::size_t most = std::size_t{1} << 30;  // as of a file
        bytes.clear();
        for (std::array<char, 65536> part; std::cin.read(part.data(), part.size()) || std::cin.gcount() > 0;) {
            bytes.append(part.data(), static_cast<std::size_t>(std::cin.gcount()));
            if (bytes.size() > most) throw FileError(FileErrorKind::other, 0, "more than 1 GiB");
        }
    }
};

/// What becomes of the peaks: rows of the table, and an object a spectrum.
class Listing {
public:
    explicit Listing(const PeaksOptions& options) : options_(options) {}

    /// Null for what is not known of the spectrum.
    void add(std::size_t number, Json id, Json ms_level, const std::string& polarity, Json scan_start_minutes,
             const PeakList& list) {
        const std::size_t first = table_.size();
        for (std::int32_t i = 0; i < list.count(); ++i) {
            const PeakInfo amu = list.GetPeakAttributeInfo(i, true);
            if (!options_.takes(amu)) continue;
            const auto errors = list.uncertainty(i);
            const auto quality = list.quality(i);
            const auto error = [&](auto part) { return part_of(errors, part); };
            table_.add(number, amu.pkCentroid, amu, errors ? Json(errors->centroid / amu.pkCentroid * 1e6) : Json(),
                       amu.pkHeight, amu.pkArea, amu.pkWidth, amu.pkResolution, error(&PeakUncertainty::height),
                       error(&PeakUncertainty::width), error(&PeakUncertainty::area), error(&PeakUncertainty::ions),
                       quality_text(quality), quality);
        }
        spectra_.push_back(Json{{"number", number},
                                {"id", std::move(id)},
                                {"ms_level", std::move(ms_level)},
                                {"polarity", polarity},
                                {"scan_start_minutes", std::move(scan_start_minutes)},
                                {"peaks", table_.json(first)}});
    }

    /// `source` tells where the spectra come from.
    ExitCode show(Session& session, Json source) {
        source["spectra"] = std::move(spectra_);
        return session.show(std::move(source), table_);
    }

private:
    const PeaksOptions& options_;
    Json spectra_ = Json::array();
    Table table_{"spectrum",      "m/z||.5f",         "|amu",           "standard error ppm|ppm_error|.2f",
                 "height||.6g",   "area||.6g",        "width amu||.5f", "resolution||.0f",
                 "|height_error", "|width_error_amu", "|area_error",    "ions|ions|.0f",
                 "<quality",      "|quality"};
};

ExitCode list_file(Session& session, const PeaksOptions& options) {
    RecordingOptions opening = session.recording_options();
    if (!opening.ms_level) opening.ms_level = every_ms_level;
    StandardInput input(session.files());
    const bool is_input = options.file == "-";
    Listing listing(options);
    std::size_t spectra = 0;
    search_profiles(is_input ? input : session.files(), is_input ? "standard input" : options.file, opening,
                    [&](const SearchedSpectrum& found, std::size_t number, std::size_t count) {
                        session.look_for_stop();
                        session.show_progress(fmt::format("spectrum {} of {}", number, count));
                        spectra = count;
                        if (options.spectrum != 0 && number != static_cast<std::size_t>(options.spectrum)) return;
                        listing.add(number, found.id, found.ms_level,
                                    found.polarity == PolaritySetpoint::Positive ? "Positive" : "Negative",
                                    found.scan_start_minutes, *found.peaks);
                    });
    if (options.spectrum > static_cast<std::int64_t>(spectra))
        throw UsageError(fmt::format("--spectrum: there are {}", spectra));
    return listing.show(session, {{"instrument", nullptr}, {"file", options.file}});
}

ExitCode list_spectrum(Session& session, const PeaksOptions& options) {
    session.begin_run();
    SpectrumParser parser(session.platform());
    const auto calibration = session.globals().GetCurrentCalibrationObjFromDD();
    constexpr double latest_ns = 1e9;
    const auto peaks = parser.GetPeakList(0, latest_ns);
    peaks->convert(*calibration, convert_to_amu_mode);
    Listing listing(options);
    listing.add(1, nullptr, nullptr, session.globals().GetPolarityStr(), nullptr, *peaks);
    return listing.show(session, {{"file", nullptr}});
}

ExitCode list_peaks(Session& session, const PeaksOptions& options) {
    if (options.from > options.to) throw UsageError("--from lies above --to");
    return options.file.empty() ? list_spectrum(session, options) : list_file(session, options);
}

}  // namespace

void declare_peaks(CLI::App& command, Session& session) {
    PeaksOptions& options = runs(command, session, "korvane peaks today.mzML --from 500 --to 600 --min-height 2000",
                                 list_peaks, Prints::table);
    command.add_option(
        "FILE", options.file,
        "mzML, or a text with m/z and counts a line; - is standard input (the instrument's next spectrum)");
    add_number(command, "--from", options.from, "least m/z that is listed", positive);
    add_number(command, "--to", options.to, "largest m/z that is listed", positive);
    add_number(command, "--min-height", options.min_height, "least height that is listed, counts");
    add_count(command, "--spectrum", options.spectrum, "number of the one spectrum that is listed, from 1 (all)", 1,
              std::numeric_limits<std::int32_t>::max());
}

}  // namespace korvane::program
