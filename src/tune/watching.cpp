#include "korvane/watching.h"

#include <algorithm>
#include <string_view>

#include "korvane/forwarding.h"

namespace korvane {

namespace {

struct Watch {
    std::function<void(bool at_spectrum)> look;
    std::function<void(const AcquiredSpectrum&)> seen;
};

constexpr int longest_turn_milliseconds = 50;

constinit thread_local AbortScope* innermost_scope = nullptr;

struct WatchedControl final : ForwardingWith<ForwardingInstrumentControl, Watch> {
    using ForwardingWith::ForwardingWith;
    void before(const char* member) const override {
        const std::string_view name = member;
        state.look(name == "GetNextSpectrum" || name == "next_spectrum_metadata");
    }
    void GetNextSpectrum(AcquiredSpectrum& spectrum) override {
        ForwardingInstrumentControl::GetNextSpectrum(spectrum);
        if (state.seen) state.seen(spectrum);
    }
};

struct WatchedGlobals final : ForwardingWith<ForwardingInstrumentGlobals, Watch> {
    using ForwardingWith::ForwardingWith;
    void before(const char*) const override { state.look(false); }
    InstrumentControl* control() override {
        InstrumentControl* const bare = ForwardingInstrumentGlobals::control();
        return bare ? &watched_control.of(*bare, state) : nullptr;
    }
    Lent<WatchedControl> watched_control;
};

struct WatchedLayer final : ForwardingWith<ForwardingInstrumentLayer, Watch> {
    using ForwardingWith::ForwardingWith;
    std::unique_ptr<InstrumentGlobals> create_globals() override {
        auto globals = ForwardingInstrumentLayer::create_globals();
        return globals ? std::make_unique<WatchedGlobals>(std::move(globals), state) : nullptr;
    }
};

struct WatchedClock final : ForwardingWith<ForwardingClock, Watch> {
    using ForwardingWith::ForwardingWith;
    void sleep_milliseconds(int milliseconds) override {
        do {
            state.look(false);
            const int turn = std::min(milliseconds, longest_turn_milliseconds);
            ForwardingClock::sleep_milliseconds(turn);
            milliseconds -= turn;
        } while (milliseconds > 0);
    }
    void process_pending_events() override {
        state.look(false);
        ForwardingClock::process_pending_events();
    }
};

}  // namespace

Platform watched(Platform platform, std::function<void(bool at_spectrum)> look,
                 std::function<void(const AcquiredSpectrum&)> seen) {
    const Watch watch{std::move(look), std::move(seen)};
    platform.instrument = std::make_shared<WatchedLayer>(platform.instrument, watch);
    platform.clock = std::make_shared<WatchedClock>(platform.clock, watch);
    return platform;
}

AbortScope::AbortScope(AbortToken token) : token_(std::move(token)), outer_(innermost_scope) {
    innermost_scope = this;
}

AbortScope::~AbortScope() {
    innermost_scope = outer_;
}

void AbortScope::abort_innermost() noexcept {
    if (innermost_scope) innermost_scope->token_.abort();
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
