// The simulated instrument on a base folder of its own, with a clock that only moves when something waits.
#pragma once

#include "instrument/simulator/simulator.h"
#include "korvane/automation.h"
#include "korvane/embedded.h"
#include "korvane/system.h"
#include "platform/files.h"
#include "support/test_platform.h"

namespace korvane {

class EmbeddedWorld {
public:
    explicit EmbeddedWorld(std::uint64_t seed = 1) {
        create_base_folder(base());
        platform_.files = make_system_files();
        platform_.clock = clock;
        platform_.message_box = message_box;
        platform_.tracers = make_file_tracer_factory();
        platform_.instrument =
            make_simulator({.base_folder = base().string(), .seed = seed, .scene_path = {}, .state_path = {}},
                           platform_.files, platform_.clock);
    }

    const Platform& platform() const { return platform_; }
    std::filesystem::path base() const { return folder_.path() / "base"; }
    automation::Object create(const std::string& class_name) {
        return automation::create_object("Korvane." + class_name, platform_);
    }

    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    std::shared_ptr<RecordingMessageBox> message_box = std::make_shared<RecordingMessageBox>();

private:
    TemporaryFolder folder_;
    Platform platform_;
};

}  // namespace korvane
