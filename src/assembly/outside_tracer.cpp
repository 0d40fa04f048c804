#include "assembly/outside_tracer.h"

namespace korvane {

namespace {

AutomationTracerMaker automation_tracer_maker = nullptr;

class SystemTracerFactory final : public TracerFactory {
public:
    std::unique_ptr<Tracer> create(std::string_view prog_id) override {
        if (automation_tracer_maker)
            if (auto tracer = automation_tracer_maker(std::string(prog_id))) return tracer;
        return file_tracers_->create(prog_id);
    }

private:
    std::shared_ptr<TracerFactory> file_tracers_ = make_file_tracer_factory();
};

}  // namespace

void set_automation_tracer_maker(AutomationTracerMaker maker) {
    automation_tracer_maker = maker;
}

std::shared_ptr<TracerFactory> make_system_tracer_factory() {
    return std::make_shared<SystemTracerFactory>();
}

}  // namespace korvane
