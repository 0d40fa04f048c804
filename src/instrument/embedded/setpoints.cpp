#include "instrument/embedded/setpoints.h"

#include <algorithm>
#include <array>
#include <utility>

#include "korvane/error.h"
#include "platform/automation_arithmetic.h"
#include "platform/text.h"

namespace korvane::embedded {

namespace {

constexpr std::int32_t int32 = contract::variable_type.int32, real = contract::variable_type.real,
                       int16 = contract::variable_type.int16;

constexpr std::array definitions = std::to_array<SetpointDefinition>({
    // index, internal name, external name, type, lower and upper limit, resolution, tolerance, default
    {18, "SamplingRate", "Sampling Rate", int32, 1, 3, 1, 0.5, 2},
    {22, "QuadAMU", "Quad AMU", real, 10, 4000, 0.1, 0.5, 100},
    {30, "FragmentTune", "Fragmentor", real, 0, 400, 1, 1, 175},
    {31, "Skimmer1", "Skimmer", real, 0, 300, 1, 1, 65},
    {32, "Oct1DC", "OCT 1 DC", real, 0, 100, 0.5, 0.5, 38},
    {33, "Oct1RF", "OCT 1 RF Vpp", real, 0, 1000, 1, 5, 750},
    {34, "Lens1", "Lens 1", real, 0, 100, 0.5, 0.5, 36},
    {35, "Lens2", "Lens 2", real, 0, 100, 0.5, 0.5, 22},
    {40, "MidMirror", "Mid Mirror", real, -2000, 0, 1, 1, -1400},
    {50, "GasTemp", "Gas Temp", real, 0, 365, 1, 2, 325},
    {51, "DryingGas", "Drying Gas", real, 0, 14, 0.1, 0.5, 8},
    {52, "Nebulizer", "Nebulizer", real, 0, 60, 1, 1, 35},
    {60, "MCP", "Detector MCP", real, 0, 1000, 1, 1, 600},
    {62, "PreAmpOffset", "PreAmp Offset", real, -100, 100, 0.1, 0.05, 0},
    {69, "Scintillator", "Scintillator", int16, 0, 1, 1, 0.5, 0},
    {104, "VCapESI", "VCap ESI", real, 0, 6000, 1, 5, 3500},
    {105, "VCapMultimode", "VCap Multimode", real, 0, 6000, 1, 5, 2500},
    {106, "VCapNanoESI", "VCap nanoESI", real, 0, 3000, 1, 5, 1800},
    {107, "VCapAPPI", "VCap APPI", real, 0, 6000, 1, 5, 3500},
    {116, "VCapHPLCTile", "VCap HPLC-Tile", real, 0, 3000, 1, 5, 1800},
    {117, "SourceType", "Ion Source", int32, 0, 11, 1, 0.5, 0},
    {119, "Polarity", "Polarity", int32, 0, 1, 1, 0.5, 0},
    {121, "VCapAPCI", "VCap APCI", real, 0, 6000, 1, 5, 3500},
    {123, "VaporizerAPCI", "APCI Vaporizer", real, 0, 500, 1, 5, 350},
    {124, "VaporizerMultimode", "Multimode Vaporizer", real, 0, 350, 1, 5, 200},
    {125, "CoronaPositive", "Corona Positive", real, 0, 100, 0.1, 0.2, 4},
    {126, "CoronaNegative", "Corona Negative", real, 0, 100, 0.1, 0.2, 15},
    {127, "NumTransients1GHz", "Transients 1 GHz", int32, 1, 50000, 1, 0.5, 5000},
    {128, "MassRange", "Mass Range", int32, 0, 2, 1, 0.5, 1},
    {135, "UpperMassLimit", "Upper Mass Limit", real, 50, 20000, 1, 0.5, 20000},
    {149, "PreAmpGainMode", "Gain Mode", int32, 0, 3, 1, 0.5, 0},
    {150, "HighResolution", "High Resolution", int16, 0, 1, 1, 0.5, 0},
    {160, "NumTransients2GHz", "Transients 2 GHz", int32, 1, 50000, 1, 0.5, 5000},
    {161, "NumTransients4GHz", "Transients 4 GHz", int32, 1, 50000, 1, 0.5, 5000},
    {162, "AbundanceAveraging", "Average Spectra", int16, 0, 1, 1, 0.5, 0},
    {165, "VCapSGF", "VCap SGF", real, 0, 6000, 1, 5, 3500},
    {167, "SheathGasPressure", "Sheath Gas Flow", real, 0, 12, 0.1, 0.5, 11},
    {169, "SheathGasTemp", "Sheath Gas Temp", real, 0, 400, 1, 2, 350},
    {170, "SlicerPosition", "Slicer Position", int32, 1, 10, 1, 0.5, 1},
    {300, "LowerMassLimit", "Lower Mass Limit", real, 0, 1000, 1, 0.5, 20},
});

static_assert(std::ranges::is_sorted(definitions, {}, &SetpointDefinition::index));

double in_type(const SetpointDefinition& definition, double value) {
    return definition.type == real ? value : nearest_even(value);
}

}  // namespace

InstrumentValue SetpointDefinition::typed(double value) const {
    return type == real ? InstrumentValue(value) : static_cast<std::int32_t>(value);
}

std::span<const SetpointDefinition> setpoint_definitions() {
    return definitions;
}

const SetpointDefinition& setpoint_definition(std::int32_t index) {
    const auto found = std::ranges::lower_bound(definitions, index, {}, &SetpointDefinition::index);
    if (found == definitions.end() || found->index != index)
        raise_runtime_fault(error_number::subscript, "setpoint[", index, "]");
    return *found;
}

const SetpointDefinition* find_setpoint(std::string_view internal_name) {
    const auto found = std::ranges::find(definitions, internal_name, &SetpointDefinition::internal_name);
    return found != definitions.end() ? &*found : nullptr;
}

Setpoints::Setpoints(std::string owner) : owner_(std::move(owner)) {
    for (const SetpointDefinition& definition : definitions)
        entries_.push_back({&definition, definition.default_value, definition.default_value});
}

const Setpoints::Entry& Setpoints::entry(std::int32_t index) const {
    return entries_[static_cast<std::size_t>(&setpoint_definition(index) - definitions.data())];
}

Setpoints::Entry& Setpoints::entry(std::int32_t index) {
    return const_cast<Entry&>(std::as_const(*this).entry(index));
}

bool Setpoints::command(std::int32_t index, const SetpointValue& value, bool at_once) {
    Entry& target = entry(index);
    const SetpointDefinition& definition = *target.definition;
    const double number = in_type(definition, std::visit([](auto plain) { return static_cast<double>(plain); }, value));
    if (!(number >= definition.lower_limit && number <= definition.upper_limit))
        throw Error(error_number::invalid_call, owner_,
                    "setpoint[" + std::to_string(index) + "] refuses value[" + number_text(number) +
                        "]: outside its limits [" + number_text(definition.lower_limit) + ", " +
                        number_text(definition.upper_limit) + "]");
    const bool changed = number != target.commanded;
    target.commanded = number;
    if (changed) target.remaining_spectra = target.delay_spectra.value_or(0);
    if (at_once || (changed && target.delay_spectra == 0)) target.arrive();
    return changed;
}

void Setpoints::preset(std::int32_t index, double value) {
    Entry& target = entry(index);
    target.commanded = in_type(*target.definition, value);
    target.arrive();
}

void Setpoints::preset(const std::map<std::string, double>& values_by_name) {
    for (const auto& [name, value] : values_by_name) preset(find_setpoint(name)->index, value);
}

void Setpoints::delay(std::int32_t index, std::optional<std::int64_t> spectra) {
    entry(index).delay_spectra = spectra;
}

void Setpoints::spectrum_begins() {
    for (Entry& waiting : entries_)
        if (waiting.remaining_spectra > 0 && waiting.remaining_spectra-- == 1) waiting.arrive();
}

std::map<std::string, double> Setpoints::commanded_by_name() const {
    std::map<std::string, double> values;
    for (const Entry& kept : entries_) values.emplace(kept.definition->internal_name, kept.commanded);
    return values;
}

}  // namespace korvane::embedded
