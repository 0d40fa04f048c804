#include "instrument/embedded/layer.h"

#include <fmt/format.h>

#include <mutex>
#include <utility>

#include "korvane/error.h"
#include "platform/automation_arithmetic.h"

namespace korvane::embedded {

namespace {

/// What the objects of a layer share.
struct Surroundings {
    std::string name, base_folder;
    std::shared_ptr<Files> files;
    std::shared_ptr<Clock> clock;
};

class Globals final : public InstrumentGlobals {
public:
    Globals(std::shared_ptr<Instrument> instrument, std::shared_ptr<Clock> clock)
        : instrument_(std::move(instrument)), clock_(std::move(clock)) {}

    // The instrument is in this process: there is nothing to connect to or to fetch.
    void initialise() override {}
    void refresh() override {}
    SetpointTable& setpoints() override { return *instrument_; }
    CalibrationStore& calibrations() override { return *instrument_; }
    HardwareQueries& hardware() override { return *instrument_; }
    FirmwareChannels& firmware() override { return *instrument_; }
    InstrumentControl* control() override { return instrument_.get(); }
    InstrumentValue dictionary_item(const std::string& name) override { return instrument_->dictionary_item(name); }
    std::string parameter_name(std::int32_t index) override { return Instrument::parameter_name(index); }
    InstrumentValue actual_value(const std::string& path, const std::string&) override {
        return instrument_->read_register(path);
    }
    double sampling_interval_seconds() override { return instrument_->sampling_interval_seconds(); }
    std::string source_type() override { return instrument_->source_name(); }
    std::string source_word() override { return instrument_->source_name(); }
    std::string time_stamp() override {
        const LocalTime now = clock_->now();
        return fmt::format("{:02}:{:02}:{:02}", now.hour, now.minute, now.second);
    }
    std::string title() override { return instrument_->title(); }

private:
    std::shared_ptr<Instrument> instrument_;
    std::shared_ptr<Clock> clock_;
};

class BaseFolder final : public PathInformation {
public:
    explicit BaseFolder(std::string folder) : folder_(std::move(folder)) {}
    std::string base_folder() override { return folder_; }

private:
    std::string folder_;
};

/// One line an entry: date, time, kind, code, the two numbers, the text where there is one, and the message.
class FileLogbook final : public LogbookEntry {
public:
    explicit FileLogbook(Surroundings surroundings) : surroundings_(std::move(surroundings)) {}

    void write(std::int32_t kind, const std::string& message, std::int32_t code, std::int32_t first,
               std::int32_t second, const std::string& text) override {
        const std::string path = join_path(join_path(surroundings_.base_folder, "Logfiles"), "Logbook.txt");
        const LocalTime now = surroundings_.clock->now();
        const std::string note = text.empty() ? "" : " [" + text + "]";
        try {
            const auto file = surroundings_.files->open_append(path);
            file->write(fmt::format("{} {} {} {} {} {}{} {}\n", date_yyyymmdd(now), time_hhmmss(now), kind, code, first,
                                    second, note, message));
            file->close();
        } catch (const FileError& fault) {
            throw Error(fault.runtime_error_number(), surroundings_.name,
                        "logbook file[" + path + "]: " + fault.what());
        }
    }

private:
    Surroundings surroundings_;
};

class Layer final : public InstrumentLayer {
public:
    Layer(Surroundings surroundings, InstrumentMaker make)
        : surroundings_(std::move(surroundings)), make_(std::move(make)) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override {
        return std::make_unique<Globals>(instrument(), surroundings_.clock);
    }
    std::unique_ptr<PathInformation> create_path_information() override {
        return std::make_unique<BaseFolder>(surroundings_.base_folder);
    }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override {
        return std::make_unique<FileLogbook>(surroundings_);
    }
    std::unique_ptr<PeakFinder> create_peak_finder() override { return instrument()->create_peak_finder(); }

private:
    std::shared_ptr<Instrument> instrument() {
        const std::lock_guard lock(mutex_);
        if (!instrument_) instrument_ = make_();
        return instrument_;
    }

    Surroundings surroundings_;
    InstrumentMaker make_;
    std::mutex mutex_;
    std::shared_ptr<Instrument> instrument_;
};

}  // namespace

std::shared_ptr<InstrumentLayer> make_layer(std::string name, std::string base_folder, std::shared_ptr<Files> files,
                                            std::shared_ptr<Clock> clock, InstrumentMaker make) {
    return std::make_shared<Layer>(
        Surroundings{std::move(name), std::move(base_folder), std::move(files), std::move(clock)}, std::move(make));
}

}  // namespace korvane::embedded
