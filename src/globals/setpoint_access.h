// Reading and changing setpoints, and the waits that go with it.
#pragma once

#include <optional>
#include <string>

#include "frame/routine.h"
#include "globals/current_setpoints.h"
#include "globals/stopwatch.h"
#include "korvane/abort_helper.h"
#include "korvane/enumerations.h"

namespace korvane {

/// What a change of a setpoint asks for besides the setpoint.
struct SetpointChange {
    double new_value = setpoint_value_not_given;
    double delta = 0;         ///< when not 0, the target is the present value plus this
    float wait_seconds = 0;   ///< waited after the write
    bool until_seen = false;  ///< return when a spectrum reports the value
};

class SetpointAccess {
public:
    SetpointAccess(const Trace& trace, const LazyInstrument& instrument, const CurrentSetpoints& setpoints,
                   AbortHelper& abort, Clock& clock)
        : trace_(trace), instrument_(instrument), setpoints_(setpoints), abort_(abort), clock_(clock) {}

    double set(std::int32_t index, const SetpointChange& change);
    double set(const std::string& internal_name, const SetpointChange& change);
    double get(std::int32_t index);
    double get(const std::string& internal_name);
    double next_metadata_value(const std::string& external_name);
    void wait(double seconds);

private:
    struct Arrival {
        SetpointModificationReturnCodes code = SetpointModificationReturnCodes::UnexpectedError;
        double last_value = 0;
    };
    struct Outcome {
        double value = 0;
        bool aborted = false;
    };
    /// A wait's end, seen by the waits inside it.
    struct Limit {
        Stopwatch stopwatch;
        double seconds;
        bool passed() { return stopwatch.seconds() >= seconds; }
    };

    Outcome set_guarded(std::int32_t index, const SetpointChange& change, TraceObj& record);
    std::optional<double> reachable_target(std::int32_t index, double current, const SetpointChange& change) const;
    void write_typed(std::int32_t index, double target);
    bool is_aborted_while_settling(std::int32_t index, double target, double current, const SetpointChange& change);
    Arrival wait_until_seen(std::int32_t index, double target, double current);
    void poll_until_seen(TraceObj& record, std::int32_t index, double target, Arrival& arrival);
    bool is_seen(TraceObj& record, std::int32_t index, double target, Arrival& arrival, Limit& limit);

    /// Nothing when `limit` passes before the instrument is ready for the spectrum.
    std::optional<double> metadata_value(const std::string& external_name, Limit* limit);
    bool wait_for_pre_run(TraceObj& record, InstrumentControl& control, Limit* limit);
    std::optional<double> find_item(const std::vector<MetaItem>& items, const std::string& name);

    /// False when the user asked to abort.
    bool wait_traced(double seconds);
    bool poll_until_over(double seconds);
    void raise_if_aborted();

    const Trace& trace_;
    const LazyInstrument& instrument_;
    const CurrentSetpoints& setpoints_;
    AbortHelper& abort_;
    Clock& clock_;
};

}  // namespace korvane
