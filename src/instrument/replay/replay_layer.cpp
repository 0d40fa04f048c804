#include "instrument/replay/replay_layer.h"

#include <array>
#include <cstdio>
#include <string>
#include <utility>

#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/replay/mzml_reader.h"
#include "instrument/replay/mzml_terms.h"
#include "instrument/replay/playback.h"
#include "instrument/replay/replay_instrument.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace replay {

namespace {

/// What all objects of one layer share.
struct Stage {
    ReplayInstrument instrument;
    std::string base_folder;
    std::shared_ptr<Files> files;
    std::shared_ptr<Clock> clock;
};

/// An instrument without options.
class NoOptions final : public HardwareQueries {
public:
    bool has_160cm_flight_tube() override { return false; }
    std::string option_name(std::int32_t option_code) override { return "Option " + std::to_string(option_code); }
    bool option_present(const std::string&) override { return false; }
    bool has_positive_post_acceleration() override { return false; }
    std::int16_t abundance_reduction_setting() override { return 0; }
    std::string model() override { return "Recording"; }
};

class ReplayGlobals final : public InstrumentGlobals {
public:
    explicit ReplayGlobals(std::shared_ptr<Stage> stage) : stage_(std::move(stage)) {}

    void initialise() override {}
    void refresh() override {}
    SetpointTable& setpoints() override { return stage_->instrument.setpoints(); }
    CalibrationStore& calibrations() override { return stage_->instrument; }
    HardwareQueries& hardware() override { return hardware_; }
    FirmwareChannels& firmware() override { return stage_->instrument; }
    InstrumentControl* control() override { return &stage_->instrument; }
    InstrumentValue dictionary_item(const std::string& name) override {
        return stage_->instrument.dictionary_item(name);
    }
    std::string parameter_name(std::int32_t index) override { return ReplayInstrument::parameter_name(index); }
    InstrumentValue actual_value(const std::string& path, const std::string&) override {
        return stage_->instrument.read_register(path);
    }
    double sampling_interval_seconds() override { return stage_->instrument.sampling_interval_seconds(); }
    std::string source_type() override {
        const double code = stage_->instrument.setpoints().number(setpoint::source_type);
        for (const SourceTerm& source : source_terms)
            if (source.source_code == code) return source.source_type;
        return "Unknown";
    }
    std::string source_word() override { return source_type(); }
    std::string time_stamp() override {
        const LocalTime now = stage_->clock->now();
        std::array<char, 48> text{};
        std::snprintf(text.data(), text.size(), "%02d:%02d:%02d", now.hour, now.minute, now.second);
        return text.data();
    }
    std::string title() override { return "Korvane"; }

private:
    std::shared_ptr<Stage> stage_;
    NoOptions hardware_;
};

class ReplayPaths final : public PathInformation {
public:
    explicit ReplayPaths(std::shared_ptr<Stage> stage) : stage_(std::move(stage)) {}
    std::string base_folder() override { return stage_->base_folder; }

private:
    std::shared_ptr<Stage> stage_;
};

/// Appends to "Logbook.txt" in the folder of the log files: date, time, kind, code, the two numbers, the text where
/// there is one, and the message.
class ReplayLogbook final : public LogbookEntry {
public:
    explicit ReplayLogbook(std::shared_ptr<Stage> stage) : stage_(std::move(stage)) {}

    void write(std::int32_t kind, const std::string& message, std::int32_t code, std::int32_t first,
               std::int32_t second, const std::string& text) override {
        const LocalTime now = stage_->clock->now();
        const std::string path = join_path(join_path(stage_->base_folder, "Logfiles"), "Logbook.txt");
        const std::string numbers = std::to_string(kind) + " " + std::to_string(code) + " " + std::to_string(first) +
                                    " " + std::to_string(second) + " ";
        const std::string note = text.empty() ? "" : "[" + text + "] ";
        try {
            stage_->files->open_append(path)->write(date_yyyymmdd(now) + " " + time_hhmmss(now) + " " + numbers + note +
                                                    message + "\n");
        } catch (const FileError& fault) {
            throw Error(fault.runtime_error_number(), "Recording", "logbook [" + path + "]: " + fault.what());
        }
    }

private:
    std::shared_ptr<Stage> stage_;
};

class ReplayLayer final : public InstrumentLayer {
public:
    explicit ReplayLayer(std::shared_ptr<Stage> stage) : stage_(std::move(stage)) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override { return std::make_unique<ReplayGlobals>(stage_); }
    std::unique_ptr<PathInformation> create_path_information() override {
        return std::make_unique<ReplayPaths>(stage_);
    }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override { return std::make_unique<ReplayLogbook>(stage_); }
    std::unique_ptr<PeakFinder> create_peak_finder() override {
        return make_peak_finder(stage_->instrument.peak_finder_options());
    }

private:
    std::shared_ptr<Stage> stage_;
};

std::string utf8_text(const std::filesystem::path& path) {
    const auto text = path.u8string();
    return {text.begin(), text.end()};
}

}  // namespace

}  // namespace replay

std::shared_ptr<InstrumentLayer> make_replay(const ReplayOptions& options, std::shared_ptr<Files> files,
                                             std::shared_ptr<Clock> clock) {
    replay::Playback playback =
        replay::prepare_playback(replay::read_recording(*files, replay::utf8_text(options.recording)));
    return std::make_shared<replay::ReplayLayer>(std::make_shared<replay::Stage>(
        replay::Stage{replay::ReplayInstrument(std::move(playback), clock), replay::utf8_text(options.base_folder),
                      std::move(files), clock}));
}

}  // namespace korvane
