// What every command works with: the options of the program itself, the platform, and what becomes of its result.
#pragma once

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>

#include "exit_codes.h"
#include "korvane/embedded.h"
#include "korvane/platform.h"
#include "korvane/restoring.h"
#include "table.h"

namespace korvane {
class AbortHelper;
class TuneGlobals;
}  // namespace korvane

namespace korvane::program {

/// An argument that means nothing here; ends in exit code 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Data goes to `out`, talk to `err`.
struct Streams {
    std::ostream& out;
    std::ostream& err;
    bool err_is_terminal = false;
    bool own_process = false;  ///< nothing else runs in this process
};

struct GlobalOptions {
    std::optional<std::string> base, replay, scene, instrument, history;
    std::uint64_t seed = 1;
    RecordingOptions recording;
};

class Session {
public:
    using Work = std::function<ExitCode(Session&)>;

    /// `system` has the files, clock, message box and tracers for the embedded instrument.
    Session(Streams streams, Platform system);
    ~Session();

    GlobalOptions options;
    bool json = false, csv = false;
    /// Why the exit code is another one although there is a result.
    std::optional<Error> fault;
    /// What is to live until the instrument has been given back.
    std::shared_ptr<void> held;
    /// What the arguments ask for.
    Work work;

    /// The platform on the chosen base folder or with the chosen instrument layer, built at the first call. What the
    /// command line says goes before the environment. What is moved on it goes back at the end. Errors as
    /// `make_embedded_platform`, `make_outside_platform`; 1 after a signal to stop.
    const Platform& platform();
    /// The program's own view of the instrument.
    InstrumentGlobals& instrument();
    TuneGlobals& globals();
    /// "simulated", "replayed", or the name of the layer.
    std::string instrument_name() const;
    /// The base folder in use, UTF-8, with no trailing separator.
    std::string base_folder();
    /// The same; empty while no platform has been built, and where the instrument does not tell.
    std::string known_base_folder();

    /// Before a command moves the instrument or takes spectra: error 1 where an abort stands, and before each spectrum
    /// from now on. Says where a search has left the instrument reduced.
    void begin_run();
    /// For work that uses no instrument: error 1 after a signal to stop.
    void look_for_stop() { look(false); }
    /// The error that ended the run, also where what runs went on without regard to it.
    const std::optional<Error>& stop() const { return stop_; }
    /// What has been moved so far stays.
    void keep_moves();
    /// Puts back the rest.
    std::vector<PutBack> give_back() noexcept;

    /// Writes text as it is to standard output.
    void print(std::string_view text) { streams_.out << text; }
    /// The same as a line of its own, at once: somebody may wait for it.
    void print_line(std::string_view text) { streams_.out << text << std::endl; }
    /// Notes the result for the end: the object for --json, the text, or the table for --csv. Returns that all is done.
    ExitCode show(Json object, std::string text);
    ExitCode show(Json object, const Table& table);
    /// What a check ends with: its fault with exit code 1, or all done where there is none.
    ExitCode checked(const std::string& found_fault);
    /// Prints the result, if any. `more` is what a JSON object gets in any case.
    void print_result(const Json& more);
    /// One line of talk.
    void talk(std::string_view line);
    /// How far a command has come: on a terminal a line that the next one replaces, behind a bar where the part that is
    /// done is told. What takes more than a second without it says there what is waited for.
    void show_progress(std::string_view line, std::optional<double> part_done = {});
    /// The same; elsewhere a line of talk.
    void tell_progress(std::string_view line, std::optional<double> part_done = {});
    /// How a recording is opened; what it does not say is talked of.
    RecordingOptions recording_options();
    Files& files() { return *system_.files; }
    bool owns_process() const { return streams_.own_process; }

private:
    Platform build_platform();
    void look(bool at_spectrum);
    [[noreturn]] void raise_stop(std::string description);
    void show_waiting(bool at_spectrum);
    void write_open_line(std::string_view line);

    Streams streams_;
    Platform system_;
    std::unique_ptr<Restoring> restoring_;
    std::optional<Platform> platform_;
    std::unique_ptr<InstrumentGlobals> instrument_;
    std::unique_ptr<TuneGlobals> globals_;
    std::unique_ptr<AbortHelper> abort_;
    std::optional<Error> stop_;
    Json object_;
    std::string text_;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    std::int64_t waited_seconds_ = 0;
    bool line_is_open_ = false, has_progress_ = false;
};

/// A path given as UTF-8, and back.
std::filesystem::path path_of(const std::string& utf8);
std::string utf8_of(const std::filesystem::path& path);

/// A file that the user names, on the session's platform. Both raise error -904 naming it. A save replaces the file in
/// one step.
std::string text_of_file(Session& session, const std::string& path);
void save_text(Session& session, const std::string& path, std::string_view text);

}  // namespace korvane::program
