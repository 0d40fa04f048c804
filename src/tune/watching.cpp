#include "korvane/watching.h"

#include <algorithm>
#include <string_view>

#include "korvane/forwarding.h"

namespace korvane {

namespace {

using Look = std::function<void(bool at_spectrum)>;
using Seen = std::function<void(const AcquiredSpectrum&)>;

constexpr int longest_turn_milliseconds = 50;

constinit thread_local AbortScope* innermost_scope = nullptr;

class WatchedControl final : public ForwardingInstrumentControl {
public:
    WatchedControl(InstrumentControl& control, Look look, Seen seen)
        : ForwardingInstrumentControl(control), look_(std::move(look)), seen_(std::move(seen)) {}

    void GetNextSpectrum(AcquiredSpectrum& spectrum) override {
        ForwardingInstrumentControl::GetNextSpectrum(spectrum);
        if (seen_) seen_(spectrum);
    }

private:
    void before(const char* member) const override {
        const std::string_view name = member;
        look_(name == "GetNextSpectrum" || name == "next_spectrum_metadata");
    }
    Look look_;
    Seen seen_;
};

class WatchedGlobals final : public ForwardingInstrumentGlobals {
public:
    WatchedGlobals(std::unique_ptr<InstrumentGlobals> globals, Look look, Seen seen)
        : ForwardingInstrumentGlobals(std::move(globals)), look_(std::move(look)), seen_(std::move(seen)) {}

    InstrumentControl* control() override {
        InstrumentControl* const control = ForwardingInstrumentGlobals::control();
        return control ? &control_.of(*control, look_, seen_) : nullptr;
    }

private:
    void before(const char*) const override { look_(false); }
    Look look_;
    Seen seen_;
    Lent<WatchedControl> control_;
};

class WatchedLayer final : public ForwardingInstrumentLayer {
public:
    WatchedLayer(std::shared_ptr<InstrumentLayer> layer, Look look, Seen seen)
        : ForwardingInstrumentLayer(std::move(layer)), look_(std::move(look)), seen_(std::move(seen)) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override {
        auto globals = ForwardingInstrumentLayer::create_globals();
        return globals ? std::make_unique<WatchedGlobals>(std::move(globals), look_, seen_) : nullptr;
    }

private:
    Look look_;
    Seen seen_;
};

class WatchedClock final : public ForwardingClock {
public:
    WatchedClock(std::shared_ptr<Clock> clock, Look look) : ForwardingClock(std::move(clock)), look_(std::move(look)) {}

    void sleep_milliseconds(int milliseconds) override {
        do {
            look_(false);
            const int turn = std::min(milliseconds, longest_turn_milliseconds);
            ForwardingClock::sleep_milliseconds(turn);
            milliseconds -= turn;
        } while (milliseconds > 0);
    }
    void process_pending_events() override {
        look_(false);
        ForwardingClock::process_pending_events();
    }

private:
    Look look_;
};

}  // namespace

Platform watched(Platform platform, std::function<void(bool at_spectrum)> look,
                 std::function<void(const AcquiredSpectrum&)> seen) {
    platform.instrument = std::make_shared<WatchedLayer>(platform.instrument, look, std::move(seen));
    platform.clock = std::make_shared<WatchedClock>(platform.clock, look);
    return platform;
}

AbortScope::AbortScope(AbortToken token) : token_(std::move(token)), outer_(innermost_scope) {
    innermost_scope = this;
}

AbortScope::~AbortScope() {
    innermost_scope = outer_;
}

void AbortScope::look() {
    for (const AbortScope* scope = innermost_scope; scope; scope = scope->outer_)
        if (scope->token_.requested())
            throw Error(error_number::user_aborted, "Korvane", "User aborted", ErrorKind::aborted);
}

Platform abortable(Platform platform) {
    return watched(std::move(platform), [](bool) { AbortScope::look(); });
}

}  // namespace korvane
