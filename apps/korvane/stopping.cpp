#include "stopping.h"

#include <csignal>
#include <string_view>

#include "korvane/forwarding.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace korvane::program {

namespace {

using Look = std::function<void(bool at_spectrum)>;

volatile std::sig_atomic_t noted_signal = 0;

void note(int signal) {
    if (noted_signal == 0) noted_signal = signal;
}

class WatchedControl final : public ForwardingInstrumentControl {
public:
    WatchedControl(InstrumentControl& control, Look look)
        : ForwardingInstrumentControl(control), look_(std::move(look)) {}

private:
    void before(const char* member) const override {
        const std::string_view name = member;
        look_(name == "GetNextSpectrum" || name == "next_spectrum_metadata");
    }
    Look look_;
};

class WatchedGlobals final : public ForwardingInstrumentGlobals {
public:
    WatchedGlobals(std::unique_ptr<InstrumentGlobals> globals, Look look)
        : ForwardingInstrumentGlobals(std::move(globals)), look_(std::move(look)) {}

    InstrumentControl* control() override {
        InstrumentControl* const control = ForwardingInstrumentGlobals::control();
        return control ? &control_.of(*control, look_) : nullptr;
    }

private:
    void before(const char*) const override { look_(false); }
    Look look_;
    Lent<WatchedControl> control_;
};

class WatchedLayer final : public ForwardingInstrumentLayer {
public:
    WatchedLayer(std::shared_ptr<InstrumentLayer> layer, Look look)
        : ForwardingInstrumentLayer(std::move(layer)), look_(std::move(look)) {}

    std::unique_ptr<InstrumentGlobals> create_globals() override {
        auto globals = ForwardingInstrumentLayer::create_globals();
        return globals ? std::make_unique<WatchedGlobals>(std::move(globals), look_) : nullptr;
    }

private:
    Look look_;
};

class WatchedClock final : public ForwardingClock {
public:
    WatchedClock(std::shared_ptr<Clock> clock, Look look) : ForwardingClock(std::move(clock)), look_(std::move(look)) {}

    void sleep_milliseconds(int milliseconds) override {
        look_(false);
        ForwardingClock::sleep_milliseconds(milliseconds);
    }
    void process_pending_events() override {
        look_(false);
        ForwardingClock::process_pending_events();
    }

private:
    Look look_;
};

}  // namespace

#ifdef _WIN32

namespace {

BOOL WINAPI note_console_event(DWORD event) {
    constexpr int hang_up = 1;
    note(event == CTRL_C_EVENT ? SIGINT : event == CTRL_BREAK_EVENT ? SIGTERM : hang_up);
    // The process ends when this returns from the closing of the console.
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(INFINITE);
    return TRUE;
}

}  // namespace

void note_stop_signals() {
    SetConsoleCtrlHandler(note_console_event, TRUE);
}

#else

void note_stop_signals() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN) continue;
        action.sa_handler = note;
        action.sa_flags = 0;  // who waits for input is to wake up
        sigaction(signal, &action, nullptr);
    }
}

#endif

int stop_signal() {
    return noted_signal;
}

std::string stop_name(int signal) {
    switch (signal) {
        case 1:
            return "SIGHUP";
        case SIGINT:
            return "Ctrl-C";
        case SIGTERM:
            return "SIGTERM";
    }
    return {};
}

Platform watched(Platform platform, std::function<void(bool at_spectrum)> look) {
    platform.instrument = std::make_shared<WatchedLayer>(platform.instrument, look);
    platform.clock = std::make_shared<WatchedClock>(platform.clock, look);
    return platform;
}

}  // namespace korvane::program
