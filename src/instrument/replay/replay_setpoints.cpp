#include "instrument/replay/replay_setpoints.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <variant>

#include "platform/automation_arithmetic.h"

namespace korvane::replay {

namespace {

constexpr std::int32_t real = 4;  // codes of the variable types
constexpr std::int32_t int32 = 3;
constexpr std::int32_t int16 = 6;

struct Setpoint {
    std::int32_t index;
    std::string_view internal_name, external_name;
    std::int32_t type;
    double lower, upper, initial;
};

// No external name is the beginning of another: metadata are searched by the beginning of a name.
constexpr auto all_setpoints = std::to_array<Setpoint>({
    {setpoint::sampling_rate, "SamplingRate", "Sampling Rate", int32, 1, int32, 1},
    {setpoint::quad_amu, "QuadAMU", "Quad AMU", real, 0, 20000, 100},
    {69, "Scintillator", "Scintillator", int16, 0, 1, 0},
    {104, "VCapESI", "VCap ESI", real, 0, 6000, 3500},
    {105, "VCapMultimode", "VCap Multimode", real, 0, 6000, 2500},
    {106, "VCapNanoESI", "VCap nanoESI", real, 0, 6000, 1800},
    {107, "VCapAPPI", "VCap APPI", real, 0, 6000, 3500},
    {116, "VCapHPLCTile", "VCap HPLC-Tile", real, 0, 6000, 1800},
    {setpoint::source_type, "SourceType", "Ion Source", int32, 0, 11, 0},
    {setpoint::polarity, "Polarity", "Polarity", int32, 0, 1, 0},
    {121, "VCapAPCI", "VCap APCI", real, 0, 6000, 3500},
    {123, "VaporizerAPCI", "APCI Vaporizer", real, 0, 500, 350},
    {124, "VaporizerMultimode", "Multimode Vaporizer", real, 0, 500, 200},
    {125, "CoronaPositive", "Corona Positive", real, 0, 100, 4},
    {126, "CoronaNegative", "Corona Negative", real, 0, 100, 15},
    {127, "NumTransients1GHz", "Transients 1 GHz", int32, 1, 1e9, 10000},
    {setpoint::mass_range, "MassRange", "Mass Range", int32, 0, 2, 0},
    {setpoint::upper_mass_limit, "UpperMassLimit", "Upper Mass Limit", real, 0, 1e6, 1700},
    {149, "PreAmpGainMode", "Gain Mode", int32, 0, int32, 0},
    {150, "HighResolution", "High Resolution", int16, 0, 1, 0},
    {160, "NumTransients2GHz", "Transients 2 GHz", int32, 1, 1e9, 10000},
    {161, "NumTransients4GHz", "Transients 4 GHz", int32, 1, 1e9, 10000},
    {162, "AbundanceAveraging", "Average Spectra", int16, 0, 1, 0},
    {165, "VCapSGF", "VCap SGF", real, 0, 6000, 3500},
    {167, "SheathGasPressure", "Sheath Gas Flow", real, 0, 12, 11},
    {169, "SheathGasTemp", "Sheath Gas Temp", real, 0, 400, 350},
    {300, "LowerMassLimit", "Lower Mass Limit", real, 0, 1e6, 20},
});

const Setpoint& known(std::int32_t index) {
    const auto found = std::ranges::find(all_setpoints, index, &Setpoint::index);
    if (found == all_setpoints.end())
        raise_runtime_fault(error_number::subscript, "setpoint[" + std::to_string(index) + "]");
    return *found;
}

double in_type(const Setpoint& setpoint, double value) {
    if (setpoint.type == real) return value;
    return setpoint.type == int16 ? to_int16(value) : to_int32(value);
}

}  // namespace

ReplaySetpoints::ReplaySetpoints() {
    for (const Setpoint& setpoint : all_setpoints) values_[setpoint.index] = setpoint.initial;
}

InstrumentValue ReplaySetpoints::value(std::int32_t index, std::int32_t, std::int32_t) {
    if (known(index).type == real) return number(index);
    return static_cast<std::int32_t>(number(index));
}

void ReplaySetpoints::write(std::int32_t index, std::int32_t, std::int32_t, const SetpointValue& value) {
    const Setpoint& setpoint = known(index);
    const double plain = std::visit([](auto typed) { return static_cast<double>(typed); }, value);
    const double written = in_type(setpoint, plain);
    if (!(written >= setpoint.lower && written <= setpoint.upper))
        raise_runtime_fault(error_number::invalid_call,
                            "setpoint[" + std::to_string(index) + "] refuses value[" + number_text(plain) + "]");
    values_[index] = written;
}

double ReplaySetpoints::lower_limit(std::int32_t index) {
    return known(index).lower;
}

double ReplaySetpoints::upper_limit(std::int32_t index) {
    return known(index).upper;
}

double ReplaySetpoints::resolution(std::int32_t index) {
    return known(index).type == real ? 0.1 : 1;
}

double ReplaySetpoints::tolerance(std::int32_t index) {
    known(index);
    return 0.5;
}

std::int32_t ReplaySetpoints::variable_type(std::int32_t index) {
    return known(index).type;
}

std::string ReplaySetpoints::external_name(std::int32_t index) {
    return std::string(known(index).external_name);
}

std::string ReplaySetpoints::internal_name(std::int32_t index) {
    return std::string(known(index).internal_name);
}

std::int32_t ReplaySetpoints::index_of(const std::string& internal_name) {
    const auto found = std::ranges::find(all_setpoints, internal_name, &Setpoint::internal_name);
    if (found == all_setpoints.end())
        raise_runtime_fault(error_number::invalid_call, "setpoint[" + internal_name + "]");
    return found->index;
}

std::vector<std::int32_t> ReplaySetpoints::indexes() {
    std::vector<std::int32_t> indexes;
    for (const auto& [index, value] : values_) indexes.push_back(index);
    return indexes;
}

double ReplaySetpoints::number(std::int32_t index) const {
    return values_.at(index);
}

void ReplaySetpoints::preset(std::int32_t index, double value) {
    values_[index] = in_type(known(index), value);
}

}  // namespace korvane::replay
