// Objects of the acquisition software that the library finds by ProgID: the tracer, and an instrument layer.
#ifdef _WIN32

#include "assembly/outside_instrument.h"
#include "assembly/outside_tracer.h"
#include "automation/com/dispatch_object.h"
#include "automation/late_bound_instrument.h"
#include "korvane/automation.h"

namespace korvane::automation {

namespace {

constexpr std::int32_t cannot_create = 429;

Object layer_object(const std::string& prog_id) {
    Object object = create_registered_object(prog_id);
    if (!object) raise_runtime_fault(cannot_create, prog_id);
    return object;
}

std::shared_ptr<InstrumentLayer> make_layer(const std::string& prog_id) {
    layer_object(prog_id);  // a ProgID that cannot be had is refused here, not at the first measurement
    // An automation object belongs to the thread that made it, a platform to all of them.
    return make_late_bound_layer([prog_id] { return layer_object(prog_id); });
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

std::unique_ptr<Tracer> make_tracer(const std::string& prog_id) {
    Object object = create_registered_object(prog_id);
    return object ? std::make_unique<AutomationTracer>(std::move(object)) : nullptr;
}

}  // namespace

void use_system_objects() {
    set_automation_layer_maker(&make_layer);
    set_automation_tracer_maker(&make_tracer);
}

}  // namespace korvane::automation

#endif
