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
    std::optional<std::string> base;
    std::optional<std::string> replay;
    std::optional<std::string> scene;
    std::uint64_t seed = 1;
    std::optional<std::string> instrument;
};

class Session {
public:
    /// `system` has the files, clock, message box and tracers for the embedded instrument.
    Session(Streams streams, Platform system) : streams_(streams), system_(std::move(system)) {}

    GlobalOptions options;
    bool json = false;
    /// The command that the arguments ask for.
    std::function<ExitCode()> command;

    /// The platform on the chosen base folder or with the chosen instrument layer, built at the first call. What the
    /// command line says goes before the environment. Errors as `make_embedded_platform`, `make_outside_platform`.
    const Platform& platform();
    /// The program's own view of the instrument.
    InstrumentGlobals& instrument();
    /// The base folder in use, with no trailing separator.
    std::filesystem::path base_folder();
    /// The same as text; empty while no platform has been built, and where the instrument does not tell.
    std::string known_base_folder();

    /// Writes text as it is, or a JSON value and a line end, to standard output.
    void print(std::string_view text) { streams_.out << text; }
    void print_json(const Json& value);
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
std::filesystem::path path_from_utf8(const std::string& utf8);
std::string utf8_from_path(const std::filesystem::path& path);

}  // namespace korvane::program
