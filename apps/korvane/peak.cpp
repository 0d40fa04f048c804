#include <fmt/format.h>

#include <array>

#include "calibrants.h"
#include "commands.h"
#include "number_options.h"
#include "peak_json.h"
#include "text_table.h"

namespace korvane::program {

namespace {

struct PeakOptions {
    std::optional<double> mass;
    std::optional<double> window_amu;
    std::string attribute;
};

struct Attribute {
    const char* name;
    PeakCalcType type;
    const char* unit;
};
constexpr std::array attributes{
    Attribute{"time", PeakCalcType::TimeCentroid, "ns"},   Attribute{"mass", PeakCalcType::MassCentroid, "amu"},
    Attribute{"resolution", PeakCalcType::Resolution, ""}, Attribute{"width", PeakCalcType::Width, "amu"},
    Attribute{"height", PeakCalcType::Height, "counts"},   Attribute{"area", PeakCalcType::Area, "counts x samples"},
};

std::vector<std::string> attribute_names() {
    std::vector<std::string> names;
    for (const Attribute& attribute : attributes) names.emplace_back(attribute.name);
    return names;
}

const Attribute& attribute_named(const std::string& name) {
    for (const Attribute& attribute : attributes)
        if (attribute.name == name) return attribute;
    throw UsageError("no attribute " + name);
}

ExitCode print_attribute(Session& session, SpectrumParser& parser, const PeakOptions& options, double window_amu) {
    const Attribute& attribute = attribute_named(options.attribute);
    const double value = parser.GetPeakAttribute(attribute.type, *options.mass, window_amu);
    if (session.json)
        session.print_json(
            Json{{"mass", *options.mass}, {"attribute", attribute.name}, {"value", value}, {"unit", attribute.unit}});
    else
        session.print(fmt::format("{:.6f}\n", value));
    return ExitCode::done;
}

ExitCode print_record(Session& session, SpectrumParser& parser, double mass, double window_amu) {
    const PeakListObject peaks = parser.GetPeakListOfOnlyThisOneMass(mass, window_amu);
    peaks->order(height_position, 0);
    const PeakInfo ns = peaks->GetPeakAttributeInfo(0, false), amu = peaks->GetPeakAttributeInfo(0, true);
    if (session.json) {
        session.print_json(
            Json{{"mass", mass}, {"peaks", peaks->count()}, {"ns", peak_json(ns)}, {"amu", peak_json(amu)}});
        return ExitCode::done;
    }
    TextTable table({{"value", Align::left}, {"ns"}, {"amu"}});
    for (std::size_t i = 0; i < peak_info_names.size(); ++i) {
        const auto position = static_cast<std::int32_t>(i);
        table.add({peak_info_names[i], fmt::format("{:.4f}", ns.value(position)),
                   fmt::format("{:.5f}", amu.value(position))});
    }
    session.print(table.text());
    return ExitCode::done;
}

ExitCode run_peak(Session& session, const PeakOptions& options) {
    TuneGlobals globals(session.platform());
    require_mass_in_range(globals, *options.mass);
    SpectrumParser parser(session.platform());
    const double window_amu = options.window_amu.value_or(0.2);
    if (window_amu >= *options.mass) throw UsageError("--window: the window reaches below mass 0");
    return options.attribute.empty() ? print_record(session, parser, *options.mass, window_amu)
                                     : print_attribute(session, parser, options, window_amu);
}

}  // namespace

void add_peak(CLI::App& program, Session& session) {
    auto options = std::make_shared<PeakOptions>();
    CLI::App* command =
        add_command(program, session, "peak", "measure the highest peak near one mass, in the next spectrum",
                    "korvane peak 1382.7373 --attribute resolution");
    add_number(*command, "MASS", options->mass, "m/z of the peak", positive)->required();
    add_number(*command, "--window", options->window_amu, "half width of the search window, amu (0.2)", positive);
    command
        ->add_option("--attribute", options->attribute,
                     "print this one value: time (ns), mass (amu), resolution, width (amu), height (counts), area")
        ->type_name("NAME")
        ->check(CLI::IsMember(attribute_names()));
    on_run(command, session, options, run_peak);
}

}  // namespace korvane::program
