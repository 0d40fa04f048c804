#include "instrument/replay/replay_layer.h"

#include "instrument/embedded/layer.h"
#include "instrument/replay/mzml_reader.h"
#include "instrument/replay/replay_instrument.h"

namespace korvane {

namespace {

std::string utf8_text(const std::filesystem::path& path) {
    const auto text = path.u8string();
    return {text.begin(), text.end()};
}

}  // namespace

std::shared_ptr<InstrumentLayer> make_replay(const ReplayOptions& options, std::shared_ptr<Files> files,
                                             std::shared_ptr<Clock> clock) {
    const std::string recording = utf8_text(options.recording);
    return embedded::make_layer("Recording", utf8_text(options.base_folder), files, clock, [recording, files, clock] {
        return std::make_shared<replay::ReplayInstrument>(
            replay::prepare_playback(replay::read_recording(*files, recording)), clock);
    });
}

}  // namespace korvane
