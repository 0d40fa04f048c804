#include "instrument/replay/replay_layer.h"

#include "instrument/embedded/layer.h"
#include "instrument/replay/mzml_reader.h"
#include "instrument/replay/replay_instrument.h"

namespace korvane {

std::shared_ptr<InstrumentLayer> make_replay(const ReplayOptions& options, std::shared_ptr<Files> files,
                                             std::shared_ptr<Clock> clock) {
    const std::string recording = utf8_from_path(options.recording);
    return embedded::make_layer("Recording", utf8_from_path(options.base_folder), files, clock,
                                [recording, files, clock] {
                                    return std::make_shared<replay::ReplayInstrument>(
                                        replay::prepare_playback(replay::read_recording(*files, recording)), clock);
                                });
}

}  // namespace korvane
