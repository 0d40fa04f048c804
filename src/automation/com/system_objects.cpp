// Objects of the acquisition software that the library finds by ProgID: the tracer, and an instrument layer.
#ifdef _WIN32

#include "automation/com/dispatch_object.h"
#include "automation/error_numbers.h"
#include "automation/instrument_layer.h"
#include "instrument/library/instrument_library.h"
#include "korvane/automation.h"
#include "korvane/embedded.h"
#include "korvane/system.h"

namespace korvane::automation {

namespace {

Object layer_object(const std::string& prog_id) {
    Object object = create_registered_object(prog_id);
    if (!object) raise_runtime_fault(cannot_create, prog_id);
    return object;
}

class AutomationTracer final : public Tracer {
public:
    /// The tracer is never released: its thread may have left automation before its state goes.
    explicit AutomationTracer(Object object) : object_(*new Object(std::move(object))) {}

    void set_module_name(const std::string& name) override { object_->put("mnameOfModule", name); }
    bool trace_flag() override { return object_->get("mtraceFlag").as_boolean(); }
    void entry(const std::string& routine, std::int32_t level) override { object_->call("Entry", {routine, level}); }
    void exit(const std::string& routine, std::int32_t level) override { object_->call("Exit", {routine, level}); }
    void trace_print(const std::string& text, const std::string& routine, std::int32_t level) override {
        object_->call("TracePrint", {text, routine, level});
    }

private:
    Object& object_;
};

/// Tracers of the class that the routines ask for where it is registered, else those of another factory.
class SystemTracers final : public TracerFactory {
public:
    explicit SystemTracers(std::shared_ptr<TracerFactory> others) : others_(std::move(others)) {}

    std::unique_ptr<Tracer> create(std::string_view prog_id) override {
        if (Object object = create_registered_object(std::string(prog_id)))
            return std::make_unique<AutomationTracer>(std::move(object));
        return others_->create(prog_id);
    }

private:
    std::shared_ptr<TracerFactory> others_;
};

}  // namespace

const Platform& process_platform() {
    static const Platform platform = [] {
        const auto instrument = default_instrument();
        return instrument ? make_outside_platform(*instrument) : with_system_tracer(make_embedded_platform({}));
    }();
    return platform;
}

Platform make_outside_platform(const std::string& instrument) {
    if (names_library(instrument)) return with_system_tracer(korvane::make_outside_platform(instrument));
    // An automation object belongs to the thread that made it, a platform to all of them.
    return with_system_tracer(make_platform(make_late_bound_layer([instrument] { return layer_object(instrument); })));
}

Platform with_system_tracer(Platform platform) {
    platform.tracers = std::make_shared<SystemTracers>(platform.tracers);
    return platform;
}

}  // namespace korvane::automation

#endif
