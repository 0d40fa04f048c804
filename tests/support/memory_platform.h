// A platform with everything in memory: disk, clock, instrument. Tracing is off.
#pragma once

#include <memory>

#include "korvane/platform.h"
#include "support/memory_disk.h"
#include "support/recording_tracer.h"
#include "support/scripted_instrument.h"
#include "support/virtual_clock.h"

namespace korvane {

struct MemoryPlatform {
    MemoryPlatform() {
        tracers->record->on = false;
        layer->state->base_folder = "/base/";
    }
    Platform platform() const { return {layer, disk, clock, message_box, tracers}; }

    std::shared_ptr<MemoryDisk> disk = std::make_shared<MemoryDisk>();
    std::shared_ptr<ScriptedLayer> layer = std::make_shared<ScriptedLayer>();
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    std::shared_ptr<RecordingMessageBox> message_box = std::make_shared<RecordingMessageBox>();
    std::shared_ptr<RecordingTracerFactory> tracers = std::make_shared<RecordingTracerFactory>();
};

}  // namespace korvane
