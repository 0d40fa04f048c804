// The acquisition software's own tracer, where the system has it.
#pragma once

#include <memory>
#include <string>

#include "korvane/system.h"

namespace korvane {

/// Tracers of the class that the routines ask for where it is registered, else the file tracer.
std::shared_ptr<TracerFactory> make_system_tracer_factory();

/// Makes a tracer that is an automation object; null where its class is not registered. The automation room, which
/// stands above this one, hands its way in.
using AutomationTracerMaker = std::unique_ptr<Tracer> (*)(const std::string& prog_id);
void set_automation_tracer_maker(AutomationTracerMaker maker);

}  // namespace korvane
