#include "korvane/restoring.h"

#include <algorithm>
#include <array>
#include <functional>
#include <mutex>
#include <optional>

#include "korvane/forwarding.h"

namespace korvane {

namespace {

/// A number in the type that a setpoint was written in.
SetpointValue of_the_type(const SetpointValue& example, double number) {
    return std::visit([&](auto typed) -> SetpointValue { return static_cast<decltype(typed)>(number); }, example);
}

enum Kind : std::int32_t { setpoint_kind, firmware_kind, calibration_kind };
/// What can be moved: its kind, its index or polarity, its time and scan segment.
using Place = std::array<std::int32_t, 4>;

struct Move {
    Place place;
    std::string name;
    double before;
    std::optional<double> ours;  // read after the last write; nothing where that failed
    std::function<double()> read;
    std::function<void(double)> write;
};

PutBack put_back(const Move& move) {
    PutBack result{move.name, move.before, 0, {}};
    try {
        result.now = result.found = move.read();
        if (result.now == move.before) return result;
        if (move.ours && result.now != move.ours) {
            result.failure = "somebody else has moved it since";
            return result;
        }
        move.write(move.before);
        result.now = move.read();
        if (result.now != move.before) result.failure = "the instrument does not take it";
    } catch (const Error& error) {
        result.failure = error.description();
    } catch (const std::exception& error) {
        result.failure = error.what();
    } catch (...) {
        result.failure = "unknown fault";
    }
    return result;
}

}  // namespace

struct Restoring::Journal {
    std::mutex mutex;
    std::vector<Move> moves;

    /// Notes what stands in a place before its first write, then writes.
    void write(const Move& move, const std::function<void()>& write) {
        const std::lock_guard lock(mutex);
        auto known = std::ranges::find(moves, move.place, &Move::place);
        if (known == moves.end()) {
            Move first = move;
            first.before = move.read();
            known = moves.insert(moves.end(), std::move(first));
        }
        known->ours = std::nullopt;
        write();
        known->ours = move.read();
    }
};

/// Notes the writes that go through it.
class Restoring::Layer final : public ForwardingWith<ForwardingInstrumentLayer, std::shared_ptr<Restoring::Journal>> {
public:
    using ForwardingWith::ForwardingWith;
    std::unique_ptr<InstrumentGlobals> create_globals() override {
        const std::shared_ptr<InstrumentGlobals> made = ForwardingInstrumentLayer::create_globals();
        return made ? std::make_unique<Globals>(made, Way{made, state}) : nullptr;
    }

private:
    /// The way back; it keeps the globals of its view alive.
    struct Way {
        std::shared_ptr<InstrumentGlobals> globals;
        std::shared_ptr<Journal> journal;
    };

    struct Table final : ForwardingWith<ForwardingSetpointTable, Way> {
        using ForwardingWith::ForwardingWith;
        void write(std::int32_t index, std::int32_t time_segment, std::int32_t scan_segment,
                   const SetpointValue& value) override {
            const std::string name = target().internal_name(index);
            const auto read = [=, held = state.globals] {
                return number_of(held->setpoints().value(index, time_segment, scan_segment), name);
            };
            const auto put = [=, held = state.globals](double number) {
                held->setpoints().write(index, time_segment, scan_segment, of_the_type(value, number));
            };
            state.journal->write({{setpoint_kind, index, time_segment, scan_segment}, name, 0, {}, read, put},
                                 [&] { target().write(index, time_segment, scan_segment, value); });
        }
    };

    struct Channels final : ForwardingWith<ForwardingFirmwareChannels, Way> {
        using ForwardingWith::ForwardingWith;
        std::int32_t write(std::int32_t channel, float value) override {
            const std::string name = "firmware channel " + std::to_string(channel);
            const auto read = [channel, held = state.globals] { return held->firmware().read(channel); };
            const auto put = [channel, held = state.globals](double number) {
                held->firmware().write(channel, static_cast<float>(number));
            };
            std::int32_t status = 0;
            state.journal->write({{firmware_kind, channel, 0, 0}, name, 0, {}, read, put},
                                 [&] { status = target().write(channel, value); });
            return status;
        }
    };

    struct Calibrations final : ForwardingWith<ForwardingCalibrationStore, Way> {
        using ForwardingWith::ForwardingWith;
        void store(std::int32_t polarity, const MassTimeCalibration& calibration) override {
            const auto present = [polarity, held = state.globals] {
                CalibrationObject lent = held->calibrations().calibration(polarity);
                if (!lent) raise_runtime_fault(error_number::object_not_set, "calibration");
                return lent;
            };
            // Any change of the law moves this mass.
            const auto read = [present] { return present()->mass_from_time(70000); };
            const auto put = [polarity, held = state.globals, before = present()->clone()](double) {
                held->calibrations().store(polarity, *before);
            };
            state.journal->write(
                {{calibration_kind, polarity, 0, 0}, "calibration (m/z at 70000 ns)", 0, {}, read, put},
                [&] { target().store(polarity, calibration); });
        }
    };

    struct Globals final : ForwardingWith<ForwardingInstrumentGlobals, Way> {
        using ForwardingWith::ForwardingWith;
        SetpointTable& setpoints() override { return table.of(state.globals->setpoints(), state); }
        FirmwareChannels& firmware() override { return channels.of(state.globals->firmware(), state); }
        CalibrationStore& calibrations() override { return store.of(state.globals->calibrations(), state); }

        Lent<Table> table;
        Lent<Channels> channels;
        Lent<Calibrations> store;
    };
};

Restoring::Restoring(const Platform& platform) : journal_(std::make_shared<Journal>()), platform_(platform) {
    platform_.instrument = std::make_shared<Layer>(platform.instrument, journal_);
}

void Restoring::keep(std::int32_t setpoint) {
    const std::lock_guard lock(journal_->mutex);
    std::erase_if(journal_->moves,
                  [&](const Move& move) { return move.place[0] == setpoint_kind && move.place[1] == setpoint; });
}

void Restoring::keep_everything() {
    const std::lock_guard lock(journal_->mutex);
    journal_->moves.clear();
}

std::vector<PutBack> Restoring::restore() noexcept {
    const std::lock_guard lock(journal_->mutex);
    std::vector<PutBack> results;
    while (!journal_->moves.empty()) {
        results.push_back(put_back(journal_->moves.back()));
        journal_->moves.pop_back();
    }
    return results;
}

}  // namespace korvane
