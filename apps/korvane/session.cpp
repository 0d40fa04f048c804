#include "session.h"

#include <algorithm>

#include "korvane/abort_helper.h"
#include "korvane/automation.h"
#include "korvane/system.h"
#include "korvane/tune_globals.h"
#include "korvane/watching.h"
#include "setpoints.h"

namespace korvane::program {

namespace {

/// Null where the clock has been told what is no time.
Json time_text(Clock& clock) {
    try {
        const LocalTime now = clock.now();
        return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", now.year, now.month, now.day, now.hour, now.minute,
                           now.second);
    } catch (const Error&) {
        return {};
    }
}

/// What the system says names the file.
template <class Work>
void told(const Work& work) {
    try {
        work();
    } catch (const FileError& fault) {
        throw Error(error_number::file_or_element, "", fault.what());
    }
}

}  // namespace

Session::Session(Streams streams, Platform system) : streams_(streams), system_(std::move(system)) {}
Session::~Session() = default;

Platform Session::build_platform() {
    if (options.instrument) return automation::make_outside_platform(*options.instrument);
    const bool embedded_wanted = options.base || options.scene || options.replay;
    if (const auto outside = default_instrument(); outside && !embedded_wanted)
        return automation::make_outside_platform(*outside);
    EmbeddedOptions embedded;
    if (options.base) embedded.base_folder = path_of(*options.base);
    if (options.scene) embedded.scene = path_of(*options.scene);
    if (options.replay) embedded.replay = path_of(*options.replay);
    embedded.recording = recording_options();
    embedded.seed = options.seed;
    return make_embedded_platform(embedded, system_);
}

RecordingOptions Session::recording_options() {
    RecordingOptions opening = options.recording;
    opening.tell = [this](const std::string& line) { talk(line); };
    return opening;
}

std::string Session::instrument_name() const {
    if (options.instrument) return *options.instrument;
    if (options.replay) return "replayed";
    return options.base || options.scene ? "simulated" : default_instrument().value_or("simulated");
}

const Platform& Session::platform() {
    if (!platform_) {
        system_.clock->now();  // raises what makes it none, before anything needs it
        restoring_ = std::make_unique<Restoring>(build_platform());
        platform_ = watched(restoring_->platform(), [this](bool at_spectrum) { look(at_spectrum); });
    }
    return *platform_;
}

InstrumentGlobals& Session::instrument() {
    if (!instrument_) instrument_ = open_globals(*platform().instrument);
    return *instrument_;
}

TuneGlobals& Session::globals() {
    if (!globals_) globals_ = std::make_unique<TuneGlobals>(platform());
    return *globals_;
}

std::string Session::base_folder() {
    const auto paths = platform().instrument->create_path_information();
    if (!paths) raise_runtime_fault(error_number::object_not_set, "create_path_information");
    const auto folder = path_of(paths->base_folder());
    return utf8_of(folder.has_filename() ? folder : folder.parent_path());
}

std::string Session::known_base_folder() {
    try {
        return platform_ ? base_folder() : std::string();
    } catch (const std::exception&) {
        return {};  // asked for while another failure is reported
    }
}

void Session::begin_run() {
    abort_ = std::make_unique<AbortHelper>(platform());
    look(true);
    try {
        if (const std::string reduced = left_reduced(*this); !reduced.empty())
            talk("a search that was killed, or still runs, has moved the instrument: " + reduced);
    } catch (const std::exception&) {
        // What the instrument does not tell is told by who needs it.
    }
}

void Session::raise_stop(std::string description) {
    stop_ = Error(error_number::user_aborted, "", std::move(description));
    throw *stop_;
}

void Session::look(bool at_spectrum) {
    if (stop_) throw *stop_;
    if (stop_signal()) raise_stop("stopped");
    if (streams_.err_is_terminal && !has_progress_) show_waiting(at_spectrum);
    if (!at_spectrum || !abort_) return;
    bool requested = false;
    try {
        requested = abort_->UserHasClickedAbort();
    } catch (const Error&) {
        // A flag that cannot be read is told by the members that need it.
    }
    if (requested) raise_stop("User aborted");
}

void Session::show_waiting(bool at_spectrum) {
    const auto elapsed = std::chrono::steady_clock::now() - begun_;
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    if (seconds <= waited_seconds_) return;
    waited_seconds_ = seconds;
    write_open_line(fmt::format("waiting for {}, {} s", at_spectrum ? "a spectrum" : "the instrument", seconds));
}

void Session::write_open_line(std::string_view line) {
    streams_.err << '\r' << line << "\x1b[K" << std::flush;
    line_is_open_ = true;
}

void Session::keep_moves() {
    if (restoring_) restoring_->keep_everything();
}

std::vector<PutBack> Session::give_back() noexcept {
    return restoring_ ? restoring_->restore() : std::vector<PutBack>{};
}

ExitCode Session::show(Json object, std::string text) {
    object_ = std::move(object);
    text_ = std::move(text);
    return ExitCode::done;
}

ExitCode Session::show(Json object, const Table& table) {
    return show(std::move(object), csv ? table.csv() : table.text());
}

ExitCode Session::checked(const std::string& found_fault) {
    if (found_fault.empty()) return ExitCode::done;
    fault = Error(error_number::routine_detected, "", found_fault);
    return ExitCode::check_failed;
}

void Session::print_result(const Json& more) {
    if (line_is_open_) streams_.err << "\r\x1b[K" << std::flush;
    line_is_open_ = false;
    if (!json) return print(text_);
    if (object_.is_null() && more.empty()) return;
    Json whole{{"schema_version", 1},
               {"time", time_text(*system_.clock)},
               {"version", KORVANE_VERSION},
               {"instrument", instrument_name()}};
    if (!object_.is_null()) whole.update(object_);
    whole.update(more);
    print(whole.dump(2, ' ', false, Json::error_handler_t::replace) + '\n');
}

void Session::talk(std::string_view line) {
    if (line_is_open_) streams_.err << "\r\x1b[K";
    line_is_open_ = false;
    streams_.err << line << std::endl;
}

void Session::show_progress(std::string_view line, std::optional<double> part_done) {
    if (!streams_.err_is_terminal) return;
    has_progress_ = true;
    constexpr std::size_t bar_width = 24;
    const auto filled = static_cast<std::size_t>(std::clamp(part_done.value_or(0), 0.0, 1.0) * bar_width);
    const std::string bar = part_done ? fmt::format("[{:.<{}}] ", std::string(filled, '#'), bar_width) : "";
    write_open_line(bar + std::string(line));
}

void Session::tell_progress(std::string_view line, std::optional<double> part_done) {
    streams_.err_is_terminal ? show_progress(line, part_done) : talk(line);
}

std::filesystem::path path_of(const std::string& utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string utf8_of(const std::filesystem::path& path) {
    const std::u8string utf8 = path.u8string();
    return {utf8.begin(), utf8.end()};
}

std::string text_of_file(Session& session, const std::string& path) {
    std::string text;
    told([&] { session.platform().files->read(path, text); });
    return text;
}

void save_text(Session& session, const std::string& path, std::string_view text) {
    told([&] { safe_save(*session.platform().files, path, text); });
}

}  // namespace korvane::program
