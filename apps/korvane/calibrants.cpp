#include "calibrants.h"

#include <fmt/format.h>

#include "commands.h"
#include "korvane/calibrants.h"

namespace korvane::program {

std::vector<double> chosen_masses(Session& session, TuneGlobals& globals, const std::vector<double>& given) {
    if (!given.empty()) {
        for (const double mass : given) require_mass_in_range(globals, mass);
        return given;
    }
    const auto masses = default_masses(session.instrument(), globals);
    return {masses.elements().begin(), masses.elements().end()};
}

void require_mass_in_range(TuneGlobals& globals, double mass) {
    if (!globals.IsThisMassInCurrentMassRange(mass))
        throw UsageError(fmt::format("m/z {} lies outside the mass range of the instrument, which ends at {}", mass,
                                     globals.GetMaxMassForCurrentMassRange()));
}

std::string current_mass_list_source(Session& session, TuneGlobals& globals) {
    return globals.GetMassListTypeFromSourceTypeString(session.instrument().source_type());
}

std::string written_log(const SpectrumParser& parser) {
    const std::string path = parser.tune_log_path();
    return path.empty() ? "not written" : path;
}

ExitCode log_and_end(Session& session, const SpectrumParser& parser) {
    if (parser.tune_log_path().empty())
        session.fault = Error(error_number::file_or_element, "",
                              "the tune log is not written: Logfiles is missing or cannot be written");
    return session.fault ? exit_code_of(*session.fault) : ExitCode::done;
}

}  // namespace korvane::program
