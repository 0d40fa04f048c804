// Creation, and getting a populated spectrum of the right polarity from the running instrument.
#include <cfloat>
#include <cmath>
#include <limits>

#include "platform/stopwatch.h"
#include "spectrum/parser_state.h"

namespace korvane {

namespace {

constexpr double populated_timeout_seconds = 15;
constexpr double polarity_timeout_seconds = 45;
constexpr int sought_entries = 2;

// What an error handler sees that was reached without an error. Raising it again is an invalid call.
constexpr std::int32_t nothing_pending = 0;

void spectrum_routine_failed(TraceObj& record, RoutineName, const Error& pending) {
    record.TR_PRINT("Error[", pending.number(), "]: ", pending.description());
    record.TR_PRINT("Spectrum routine Failed");
    record.TR_PRINT("No New Spectrum received");
    if (pending.number() == nothing_pending)
        throw Error(error_number::invalid_call, "Korvane", "Invalid procedure call or argument", pending.kind());
}

bool IsDataReturnedFromGetNextSpectrumPopulated(const ParserState& state, const AcquiredSpectrum& spectrum) {
    return routine(state.trace, [&](TraceObj& record) {
        bool populated = true;
        const auto check = [&](bool is_empty, std::string_view name) {
            if (is_empty) record.TR_PRINT("LOG: WARNING: returned ", name, " is empty");
            populated = populated && !is_empty;
        };
        check(spectrum.mass_data.is_empty(), "vMassData");
        check(spectrum.y_data.is_empty(), "YData");
        check(spectrum.meta_data.is_empty(), "MetaData");
        return populated;
    });
}

bool contains(const std::string& text, std::string_view sought) {
    return text.find(sought) != std::string::npos;
}

void GetMetaDataIndexesForExperimentIdxAndPolarity(ParserState& state, const VariantArray<std::string>& vMetaDesc) {
    routine(state.trace, [&](TraceObj& record) {
        const std::string experiment_name = state.instrument->parameter_name(contract::parameter.experiment);
        const std::string polarity_name = state.instrument->setpoints().external_name(contract::setpoint.polarity);
        const std::int32_t last = vMetaDesc.upper_bound();
        record.TR_PRINT("Number of elements in vMetaDesc = ", last);
        int found = 0;
        for (std::int32_t position = 0; position <= last && found < sought_entries; ++position) {
            const std::string& entry = vMetaDesc.at(position);
            if (contains(entry, experiment_name)) {
                record.TR_PRINT("Exp MetaDataParameterIndex located");
                state.metadata_entries.lExpIndex = position;
                ++found;
            }
            if (contains(entry, polarity_name) && contains(entry, contract::metadata_name.setpoint_mark.key)) {
                state.metadata_entries.lPolarityIndex = position;
                ++found;
            }
        }
    });
}

bool ReturnedSpectrumIsOfSoughtPolarity(ParserState& state, const VariantArray<InstrumentValue>& vMetaData) {
    const auto log_error = [&](TraceObj&, RoutineName, const Error&) {
        state.log(
            "AUTOTUNE LOG: ERROR in ReturnedSpectrumIsOfSoughtPolarity(): Error getting Polarity and ExperimentIndex "
            "out of the MetaData Array");
    };
    return routine(state.trace, log_error, [&] {
        const std::int32_t polarity = to_int16(vMetaData.at(state.metadata_entries.lPolarityIndex));
        if (polarity != 0 && polarity != 1) {
            const auto fault = text_of("Polarity MetaData Entry is NOT valid (1 or 0); it was returned as ", polarity);
            state.log("AUTOTUNE LOG: WARNING: ", fault);
            throw Error(error_number::routine_detected, "ReturnedSpectrumIsOfSoughtPolarity", fault);
        }
        const bool sought = polarity == state.current().code(contract::setpoint.polarity);
        if (sought)
            state.log("AUTOTUNE LOG: STATUS: Spectrum of proper polarity and experiment index was returned");
        else  // whatever the experiment is, the line says 0
            state.log("AUTOTUNE LOG: WARNING: Received spectrum with Different polarity = ", polarity,
                      " For Experiment = 0");
        return sought;
    });
}

void log_polarity_timeout(ParserState& state, const VariantArray<InstrumentValue>& vMetaData) {
    // The experiment entry stands where the text says polarity, and its value moves the second position. Readers of
    // the log know the line so.
    const std::int32_t experiment = to_int32(vMetaData.at(state.metadata_entries.lExpIndex));
    const std::int64_t position = std::int64_t{experiment} + state.metadata_entries.lPolarityIndex;
    if (position > std::numeric_limits<std::int32_t>::max()) raise_runtime_fault(error_number::overflow);
    state.log("AUTOTUNE LOG: WARNING: Timed out waiting for spectrum with polarity[", experiment,
              "] and experimentIndex[", vMetaData.at(static_cast<std::int32_t>(position)), "]");
}

}  // namespace

SpectrumParser::SpectrumParser(Platform platform) : impl_(new Impl(platform), [](Impl* state) { delete state; }) {}

std::string SpectrumParser::tune_log_path() const {
    return impl_->tune.tune_log_path();
}

CurrentSetpoints SpectrumParser::Impl::current() {
    segments = {tune.CurrentTimeSegment(), tune.CurrentScanSegment()};
    return {instrument, segments};
}

void SpectrumParser::Impl::raise_if_aborted() {
    if (abort.UserHasClickedAbort()) throw Error(error_number::user_aborted, "", "User aborted");
}

float to_single(double value) {
    // The first double that no longer rounds to a single-precision number.
    constexpr double beyond = FLT_MAX + 0x1p103;
    if (std::abs(value) >= beyond) raise_runtime_fault(error_number::overflow, "[", value, "]");
    return static_cast<float>(value);
}

void SpectrumParser::GetNewSpectrumAndVerifyDataIsPopulated(VariantArray<double>& vMassData,
                                                            VariantArray<double>& vYData,
                                                            VariantArray<InstrumentValue>& vMetaData,
                                                            double& dSpectrumStartTimeInNS,
                                                            bool& bUserHasCancelledRampInGUI) {
    Impl& state = *impl_;
    routine(state.trace, spectrum_routine_failed, [&](TraceObj& record) {
        bUserHasCancelledRampInGUI = false;
        Stopwatch stopwatch(*state.platform.clock);
        AcquiredSpectrum answer;  // keeps what the instrument filled in last
        const auto next_is_populated = [&](const auto& report) {
            InstrumentControl& control = state.instrument.control();
            vMassData = answer.mass_data = {};
            vYData = answer.y_data = {};
            vMetaData = answer.meta_data = {};
            control.GetNextSpectrum(answer);
            vMassData = answer.mass_data;
            vYData = answer.y_data;
            vMetaData = answer.meta_data;
            dSpectrumStartTimeInNS = answer.start_time_ns;
            report();
            return IsDataReturnedFromGetNextSpectrumPopulated(state, answer);
        };
        do {
            state.platform.clock->process_pending_events();
            state.raise_if_aborted();
            state.instrument->refresh();
            if (!state.instrument->control()) record.TR_PRINT("Error: pMSControl is Nothing");
            record.TR_PRINT("Setting up to retrieve next spectrum");
            record.TR_PRINT("Getting next spectrum");
            const bool received =
                next_is_populated([&] {
                    state.log("AUTOTUNE LOG: STATUS: spectrum (with Experiment[", answer.experiment,
                              "], dRetentionTime[", answer.retention_time, "]) gotten from GetNextSpectrum()");
                }) ||
                next_is_populated([&] {
                    record.TR_PRINT(
                        "AUTOTUNE LOG: STATUS: first spectrum invalid; getting second spectrum (with Experiment[",
                        answer.experiment, "]) gotten from GetNextSpectrum()");
                });
            if (received) return record.TR_PRINT("recieved a spectrum");
        } while (stopwatch.seconds() <= populated_timeout_seconds);
        state.log("AUTOTUNE LOG: WARNING: Timed out. No valid spectrum received");
        throw Error(nothing_pending, "", "", ErrorKind::time_out);
    });
}

bool SpectrumParser::Impl::WaitForSpectrumWithProperPolarityAndExperimentIndex(SpectrumParser& parser,
                                                                               AcquiredSpectrum& spectrum) {
    return routine(trace, [&](TraceObj& record) {
        Stopwatch stopwatch(*platform.clock);
        log("AUTOTUNE LOG: STATUS: Waiting for spectrum with proper polarity and Experiment Index");
        const VariantArray<std::string> vMetaDesc = instrument.control().GetMetaDescription();
        record.TR_PRINT("Received metadescription");
        GetMetaDataIndexesForExperimentIdxAndPolarity(*this, vMetaDesc);
        do {
            bool bUserHasCancelledRampInGUI = false;
            parser.GetNewSpectrumAndVerifyDataIsPopulated(spectrum.mass_data, spectrum.y_data, spectrum.meta_data,
                                                          spectrum.start_time_ns, bUserHasCancelledRampInGUI);
            if (ReturnedSpectrumIsOfSoughtPolarity(*this, spectrum.meta_data)) return true;
        } while (stopwatch.seconds() <= polarity_timeout_seconds);
        log_polarity_timeout(*this, spectrum.meta_data);
        return false;
    });
}

}  // namespace korvane
