// What every command works with: the options of the program itself, where output goes, and the platform.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "exit_codes.h"
#include "korvane/embedded.h"
#include "korvane/platform.h"

namespace korvane::program {

using Json = nlohmann::ordered_json;

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
};

struct GlobalOptions {
    std::optional<std::string> base, replay, scene, instrument;
    std::uint64_t seed = 1;
};

class Session {
public:
    using Work = std::function<ExitCode(Session&)>;

    /// `system` has the files, clock, message box and tracers for the embedded instrument.
    Session(Streams streams, Platform system) : streams_(streams), system_(std::move(system)) {}

    GlobalOptions options;
    bool json = false;
    /// What the arguments ask for.
    Work work;

    /// The platform on the chosen base folder or with the chosen instrument layer, built at the first call. What the
    /// command line says goes before the environment. Errors as `make_embedded_platform`, `make_outside_platform`.
    const Platform& platform();
    /// The program's own view of the instrument.
    InstrumentGlobals& instrument();
    /// The base folder in use, UTF-8, with no trailing separator.
    std::string base_folder();
    /// The same; empty while no platform has been built, and where the instrument does not tell.
    std::string known_base_folder();

    /// Writes text as it is to standard output.
    void print(std::string_view text) { streams_.out << text; }
    /// Prints what --json asks for: the object or the text. Returns that all is done.
    ExitCode show(const Json& object, std::string_view text);
    /// One line of talk.
    void talk(std::string_view line) { streams_.err << line << std::endl; }
    std::ostream& talk_stream() { return streams_.err; }
    bool talk_is_terminal() const { return streams_.err_is_terminal; }

private:
    Platform build_platform() const;

    Streams streams_;
    Platform system_;
    std::optional<Platform> platform_;
    std::unique_ptr<InstrumentGlobals> instrument_;
};

/// A path given as UTF-8, and back.
std::filesystem::path path_of(const std::string& utf8);
std::string utf8_of(const std::filesystem::path& path);

}  // namespace korvane::program
