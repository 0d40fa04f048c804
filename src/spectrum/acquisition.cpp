#include "spectrum/acquisition.h"

#include <limits>

#include "globals/stopwatch.h"

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
    if (pending.number() == nothing_pending) raise_runtime_fault(error_number::invalid_call);
}

bool contains(const std::string& text, std::string_view sought) {
    return text.find(sought) != std::string::npos;
}

}  // namespace

/// Request for spectra; keeps what the instrument filled in last.
struct SpectrumAcquisition::Request {
    AcquiredSpectrum answer;

    void take_next(InstrumentControl& control, SpectrumReference spectrum) {
        spectrum.vMassData.clear();
        spectrum.vYData.clear();
        spectrum.vMetaData.clear();
        answer.mass_data.clear();
        answer.y_data.clear();
        answer.meta_data.clear();
        control.GetNextSpectrum(answer);
        spectrum.vMassData = answer.mass_data;
        spectrum.vYData = answer.y_data;
        spectrum.vMetaData = answer.meta_data;
        spectrum.dSpectrumStartTimeInNS = answer.start_time_ns;
    }
};

void SpectrumAcquisition::GetNewSpectrumAndVerifyDataIsPopulated(SpectrumReference spectrum,
                                                                 bool& bUserHasCancelledRampInGUI) {
    routine(session_.trace, {"GetNewSpectrumAndVerifyDataIsPopulated"}, spectrum_routine_failed, [&](TraceObj& record) {
        bUserHasCancelledRampInGUI = false;
        Stopwatch stopwatch(*session_.platform.clock);
        Request request;
        bool received = false;
        do {
            received = poll_for_populated_spectrum(record, request, spectrum);
        } while (!received && stopwatch.seconds() <= populated_timeout_seconds);
        if (!received) {
            session_.log("AUTOTUNE LOG: WARNING: Timed out. No valid spectrum received");
            throw Error(nothing_pending, "", "");
        }
        record.TR_PRINT("recieved a spectrum");
    });
}

/// One polling pass: a spectrum and, where that one is not populated, a second one.
bool SpectrumAcquisition::poll_for_populated_spectrum(TraceObj& record, Request& request, SpectrumReference spectrum) {
    session_.platform.clock->process_pending_events();
    session_.raise_if_aborted();
    session_.instrument->refresh();
    if (!session_.instrument->control()) record.TR_PRINT("Error: pMSControl is Nothing");
    record.TR_PRINT("Setting up to retrieve next spectrum");
    record.TR_PRINT("Getting next spectrum");
    request.take_next(session_.control(), spectrum);
    session_.log(text_of("AUTOTUNE LOG: STATUS: spectrum (with Experiment[", request.answer.experiment,
                         "], dRetentionTime[", request.answer.retention_time, "]) gotten from GetNextSpectrum()"));
    if (IsDataReturnedFromGetNextSpectrumPopulated(spectrum)) return true;

    request.take_next(session_.control(), spectrum);
    record.TR_PRINT("AUTOTUNE LOG: STATUS: first spectrum invalid; getting second spectrum (with Experiment[",
                    request.answer.experiment, "]) gotten from GetNextSpectrum()");
    return IsDataReturnedFromGetNextSpectrumPopulated(spectrum);
}

bool SpectrumAcquisition::IsDataReturnedFromGetNextSpectrumPopulated(const SpectrumReference& spectrum) {
    return routine(session_.trace, {"IsDataReturnedFromGetNextSpectrumPopulated"}, [&](TraceObj& record) {
        const bool no_masses = spectrum.vMassData.is_empty();
        const bool no_samples = spectrum.vYData.is_empty();
        const bool no_metadata = spectrum.vMetaData.is_empty();
        if (no_masses) record.TR_PRINT("LOG: WARNING: returned vMassData is empty");
        if (no_samples) record.TR_PRINT("LOG: WARNING: returned YData is empty");
        if (no_metadata) record.TR_PRINT("LOG: WARNING: returned MetaData is empty");
        return !(no_masses || no_samples || no_metadata);
    });
}

std::int32_t SpectrumAcquisition::WaitForSpectrumWithProperPolarityAndExperimentIndex(
    SpectrumReference spectrum, VariantArray<std::string>& vMetaDesc, bool& bUserHasCancelledRampInGUI) {
    return routine(session_.trace, {"WaitForSpectrumWithProperPolarityAndExperimentIndex"}, [&](TraceObj& record) {
        std::int32_t status = wait_status::arrived;
        Stopwatch stopwatch(*session_.platform.clock);
        session_.log("AUTOTUNE LOG: STATUS: Waiting for spectrum with proper polarity and Experiment Index");
        vMetaDesc = session_.control().GetMetaDescription();
        record.TR_PRINT("Received metadescription");
        GetMetaDataIndexesForExperimentIdxAndPolarity(vMetaDesc);
        do {
            GetNewSpectrumAndVerifyDataIsPopulated(spectrum, bUserHasCancelledRampInGUI);
            if (bUserHasCancelledRampInGUI) status = wait_status::cancelled;
            if (ReturnedSpectrumIsOfSoughtPolarity(spectrum.vMetaData)) return status;
        } while (stopwatch.seconds() <= polarity_timeout_seconds);
        log_polarity_timeout(spectrum.vMetaData);
        return wait_status::timed_out;
    });
}

void SpectrumAcquisition::log_polarity_timeout(const VariantArray<InstrumentValue>& vMetaData) {
    // The experiment entry stands where the text says polarity, and its value moves the second position. Readers of
    // the log know the line so.
    const std::int32_t experiment = to_int32(vMetaData.at(positions_.lExpIndex));
    const std::int64_t position = std::int64_t{experiment} + positions_.lPolarityIndex;
    if (position > std::numeric_limits<std::int32_t>::max()) raise_runtime_fault(error_number::overflow);
    session_.log(text_of("AUTOTUNE LOG: WARNING: Timed out waiting for spectrum with polarity[", experiment,
                         "] and experimentIndex[", vMetaData.at(static_cast<std::int32_t>(position)), "]"));
}

void SpectrumAcquisition::GetMetaDataIndexesForExperimentIdxAndPolarity(const VariantArray<std::string>& vMetaDesc) {
    routine(session_.trace, {"GetMetaDataIndexesForExperimentIdxAndPolarity"}, [&](TraceObj& record) {
        const std::string experiment_name = session_.instrument->parameter_name(contract::parameter.experiment);
        const std::string polarity_name = session_.instrument->setpoints().external_name(contract::setpoint.polarity);
        const std::int32_t last = vMetaDesc.upper_bound();
        record.TR_PRINT("Number of elements in vMetaDesc = ", last);
        int found = 0;
        for (std::int32_t position = 0; position <= last && found < sought_entries; ++position) {
            const std::string& entry = vMetaDesc.at(position);
            if (contains(entry, experiment_name)) {
                record.TR_PRINT("Exp MetaDataParameterIndex located");
                positions_.lExpIndex = position;
                ++found;
            }
            if (contains(entry, polarity_name) && contains(entry, contract::metadata_name.setpoint_mark.key)) {
                positions_.lPolarityIndex = position;
                ++found;
            }
        }
    });
}

bool SpectrumAcquisition::ReturnedSpectrumIsOfSoughtPolarity(const VariantArray<InstrumentValue>& vMetaData) {
    const auto log_error = [&](TraceObj&, RoutineName, const Error&) {
        session_.log(
            "AUTOTUNE LOG: ERROR in ReturnedSpectrumIsOfSoughtPolarity(): Error getting Polarity and ExperimentIndex "
            "out of the MetaData Array");
    };
    return routine(session_.trace, {"ReturnedSpectrumIsOfSoughtPolarity"}, log_error, [&] {
        const std::int32_t polarity = checked_polarity(vMetaData);
        const Segments segments = session_.current_segments();
        if (polarity == CurrentSetpoints(session_.instrument, segments).code(contract::setpoint.polarity)) {
            session_.log("AUTOTUNE LOG: STATUS: Spectrum of proper polarity and experiment index was returned");
            return true;
        }
        constexpr int experiment_figure = 0;
        session_.log(text_of("AUTOTUNE LOG: WARNING: Received spectrum with Different polarity = ", polarity,
                             " For Experiment = ", experiment_figure));
        return false;
    });
}

std::int32_t SpectrumAcquisition::checked_polarity(const VariantArray<InstrumentValue>& vMetaData) {
    const std::int32_t polarity = to_int16(vMetaData.at(positions_.lPolarityIndex));
    if (polarity == 0 || polarity == 1) return polarity;
    const std::string fault = text_of("Polarity MetaData Entry is NOT valid (1 or 0); it was returned as ", polarity);
    session_.log("AUTOTUNE LOG: WARNING: " + fault);
    throw Error(error_number::routine_detected, "ReturnedSpectrumIsOfSoughtPolarity", fault);
}

void raise_wait_status(std::int32_t status, std::string_view routine_name) {
    const char* description = status == wait_status::timed_out
                                  ? "Timed out waiting for a spectrum of the sought polarity"
                                  : "The wait for a spectrum was cancelled";
    throw Error(status, std::string(routine_name), description);
}

}  // namespace korvane
