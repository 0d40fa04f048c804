// The instrument layer that plays a recording.
#pragma once

#include <memory>
#include <string>

#include "korvane/embedded_parts.h"
#include "korvane/instrument.h"
#include "korvane/system.h"
#include "platform/files.h"

namespace korvane {

/// Paths are UTF-8. An instrument that shows the recording's spectra in order, and then around again. Setpoints start
/// as the recording has them (docs/recordings.md); what is written to setpoints, firmware channels and calibrations is
/// remembered but changes no spectrum. A spectrum takes as long as it lies from the one before it in the recording, a
/// second at most. The recording is read when the instrument is first needed, which then raises the errors of
/// `replay::read_recording` and `replay::prepare_playback`, and -904 naming a recorded
/// setpoint that a replay does not have.
std::shared_ptr<InstrumentLayer> make_replay(const std::string& recording, const std::string& base_folder,
                                             const RecordingOptions& options, std::shared_ptr<Files> files,
                                             std::shared_ptr<Clock> clock);

}  // namespace korvane
