#include "instrument/simulator/simulator.h"

#include "instrument/peakfinder/embedded_peak_finder.h"
#include "instrument/simulator/instrument_views.h"
#include "instrument/simulator/simulated_instrument.h"
#include "korvane/error.h"
#include "platform/automation_arithmetic.h"

namespace korvane {

namespace {

using simulation::SimulatedInstrument;

class BaseFolder final : public PathInformation {
public:
    explicit BaseFolder(std::string folder) : folder_(std::move(folder)) {}
    std::string base_folder() override { return folder_; }

private:
    std::string folder_;
};

// One line an entry: date, time, kind, code, the two numbers, the text where there is one, and the message.
class FileLogbook final : public LogbookEntry {
public:
    FileLogbook(const std::string& base_folder, std::shared_ptr<Files> files, std::shared_ptr<Clock> clock)
        : path_(join_path(join_path(base_folder, "Logfiles"), "Logbook.txt")),
          files_(std::move(files)),
          clock_(std::move(clock)) {}

    void write(std::int32_t kind, const std::string& message, std::int32_t code, std::int32_t first,
               std::int32_t second, const std::string& text) override {
        const LocalTime now = clock_->now();
        std::string line = date_yyyymmdd(now) + " " + time_hhmmss(now);
        for (const std::int32_t number : {kind, code, first, second}) line.append(1, ' ').append(std::to_string(number));
        if (!text.empty()) line += " [" + text + "]";
        line += " " + message + "\n";
        try {
            const auto file = files_->open_append(path_);
            file->write(line);
            file->close();
        } catch (const FileError& fault) {
            throw Error(fault.runtime_error_number(), "Simulator", "logbook file[" + path_ + "]: " + fault.what());
        }
    }

private:
    std::string path_;
    std::shared_ptr<Files> files_;
    std::shared_ptr<Clock> clock_;
};

class SimulatorLayer final : public InstrumentLayer {
public:
    SimulatorLayer(std::shared_ptr<SimulatedInstrument> instrument, std::string base_folder,
                   std::shared_ptr<Files> files, std::shared_ptr<Clock> clock)
        : instrument_(std::move(instrument)),
          base_folder_(std::move(base_folder)),
          files_(std::move(files)),
          clock_(std::move(clock)) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override { return simulation::make_globals_view(instrument_); }
    std::unique_ptr<PathInformation> create_path_information() override {
        return std::make_unique<BaseFolder>(base_folder_);
    }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override {
        return std::make_unique<FileLogbook>(base_folder_, files_, clock_);
    }
    std::unique_ptr<PeakFinder> create_peak_finder() override {
        return make_peak_finder(instrument_->peak_finder_options());
    }

private:
    std::shared_ptr<SimulatedInstrument> instrument_;
    std::string base_folder_;
    std::shared_ptr<Files> files_;
    std::shared_ptr<Clock> clock_;
};

std::shared_ptr<SimulatedInstrument> make_instrument(const SimulatorOptions& options, std::shared_ptr<Files> files,
                                                     std::shared_ptr<Clock> clock) {
    const std::string scene_name = options.scene_path.value_or("default scene");
    simulation::Scene scene =
        options.scene_path
            ? simulation::parse_scene(simulation::read_named_file(*files, scene_name, "scene"), scene_name)
            : simulation::default_scene();
    try {
        return std::make_shared<SimulatedInstrument>(std::move(scene), options.seed,
                                                     simulation::StateFile(std::move(files), options.state_path),
                                                     std::move(clock));
    } catch (const Error& fault) {
        if (fault.number() == error_number::file_or_element) throw;
        throw Error(error_number::file_or_element, "Simulator",
                    "scene file[" + scene_name + "]: " + fault.description());
    }
}

}  // namespace

std::shared_ptr<InstrumentLayer> make_simulator(const SimulatorOptions& options, std::shared_ptr<Files> files,
                                                std::shared_ptr<Clock> clock) {
    auto instrument = make_instrument(options, files, clock);
    return std::make_shared<SimulatorLayer>(std::move(instrument), options.base_folder, std::move(files),
                                            std::move(clock));
}

}  // namespace korvane
