#include "instrument/replay/replay_layer.h"

#include "instrument/embedded/instrument.h"
#include "instrument/replay/mzml_reader.h"
#include "instrument/replay/replay_instrument.h"

namespace korvane {

std::shared_ptr<InstrumentLayer> make_replay(const ReplayOptions& options, std::shared_ptr<Files> files,
                                             std::shared_ptr<Clock> clock) {
    const std::string recording = utf8_from_path(options.recording);
    const auto make = [recording, wishes = options.options, files, clock] {
        const replay::Playback playback = replay::prepare_playback(replay::read_recording(*files, recording, wishes));
        if (wishes.tell)
            for (const std::string& line : playback.notes.lines())
                wishes.tell("recording [" + recording + "]: " + line);
        return std::make_shared<replay::ReplayInstrument>(playback, clock);
    };
    return embedded::make_layer("Recording", utf8_from_path(options.base_folder), files, clock, make);
}

}  // namespace korvane
