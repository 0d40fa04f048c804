// A client whose instrument, or user, makes trouble at a chosen instrument call: whether the result is explained by the
// trouble, and whether the setpoints end where they were promised.
#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "korvane/tune_globals.h"
#include "support/spectrum_world.h"

namespace korvane {

/// What is wrong at the n-th instrument call of an operation, or from it on.
enum class Trouble { none, fault, fault_for_good, abort, wrong_polarity, silence, no_peaks };
inline constexpr const char* trouble_names[] = {"none",           "fault",   "fault for good", "abort",
                                                "wrong polarity", "silence", "no peaks"};

struct Operation {
    std::string name;
    std::function<void(SpectrumParser&, TuneGlobals&)> run;
    /// Setpoints that it may move.
    std::vector<int> moves;
    /// Value that the one setpoint of an operation gets which only sets.
    std::optional<double> sets = {};
    bool averages = false;

    bool may_move(int setpoint) const { return std::find(moves.begin(), moves.end(), setpoint) != moves.end(); }
};

const std::vector<Operation>& operations();

class TroubledClient {
public:
    /// Every spectrum takes so long.
    explicit TroubledClient(double spectrum_seconds);

    /// Runs the operation with the trouble; what is not as promised, else nothing.
    std::string run(const Operation& operation, Trouble trouble, int at_call);
    /// Whether the last operation came to the call at which there was trouble.
    bool met() const { return met_; }
    const Error& error() const { return error_; }
    std::int64_t acquisitions() const { return acquisitions_; }
    /// New objects, and no logs.
    void renew();

    SpectrumWorld world;

private:
    void begin(const Operation& operation, Trouble trouble, int at_call);
    void acquire(AcquiredSpectrum& spectrum);
    std::vector<MetaItem> metadata();
    bool suffers(Trouble trouble) const { return met_ && trouble_ == trouble; }
    bool is_excused(const Operation& operation) const;
    bool is_explained(const Operation& operation) const;
    std::string broken_promise(const Operation& operation);
    std::vector<double> written(int setpoint);

    std::optional<SpectrumParser> parser_;
    std::optional<TuneGlobals> globals_;
    std::map<int, double> before_;
    Error error_{0, "", ""};
    Trouble trouble_ = Trouble::none;
    bool met_ = false;
    std::int64_t acquisitions_ = 0;
};

}  // namespace korvane
