// Whole platforms for tests: scripted instrument, virtual clock, recording tracer; files in a folder of its own or in
// memory.
#pragma once

#include <filesystem>

#include "korvane/embedded.h"
#include "support/memory_disk.h"
#include "support/recording_tracer.h"
#include "support/scripted_instrument.h"
#include "support/virtual_clock.h"

namespace korvane {

/// A temporary folder, removed with its content.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    /// Both UTF-8.
    std::string file(const std::string& name) const;

private:
    std::filesystem::path path_;
};

std::string read_text(const std::filesystem::path& path);
void write_text(const std::filesystem::path& path, const std::string& text);
/// The lines of a text file, without their ends.
Lines read_lines(const std::filesystem::path& path);
/// The names in a folder, in order.
Lines names_in(const std::filesystem::path& folder);

/// The embedded instrument on a base folder of its own, as `init` makes it.
struct EmbeddedBase {
    EmbeddedBase() { create_base_folder(base); }
    Platform platform() const { return make_embedded_platform({.base_folder = base}); }

    TemporaryFolder folder;
    std::filesystem::path base = folder.path() / "base";
};

/// All of a platform but its files.
struct ScriptedParts {
    std::shared_ptr<ScriptedLayer> layer = std::make_shared<ScriptedLayer>();
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    std::shared_ptr<RecordingTracerFactory> tracers = std::make_shared<RecordingTracerFactory>();
    std::shared_ptr<RecordingMessageBox> message_box = std::make_shared<RecordingMessageBox>();
};

/// A platform with everything in memory. Tracing is off.
struct MemoryPlatform : ScriptedParts {
    MemoryPlatform() {
        tracers->record->on = false;
        layer->state->base_folder = "/base/";
    }
    Platform platform() const { return {layer, disk, clock, message_box, tracers}; }

    std::shared_ptr<MemoryDisk> disk = std::make_shared<MemoryDisk>();
};

/// Every test's world. The base folder holds "TunePreferences.xml" and "TuneParams.xml" with the content given by
/// `preference` and `limit`, and an empty "Logfiles".
class TestPlatform : public ScriptedParts {
public:
    TestPlatform();

    /// Sets a preference (added when new) and writes the file.
    void preference(const std::string& name, const std::string& value);
    /// Sets an autotune limit (added when new) and writes the file.
    void limit(const std::string& group, const std::string& key, const std::string& value);
    /// Adds raw text inside /QTOFTuneParams, after the TOF element.
    void raw_parameters(const std::string& xml);

    Platform platform() const;
    ScriptedState& instrument() { return *layer->state; }
    TraceRecord& trace() { return *tracers->record; }
    std::filesystem::path base() const { return folder.path() / "base"; }
    /// Lines of the newest file in Logfiles whose name starts so.
    std::vector<std::string> log_lines(const std::string& name_start) const;

    TemporaryFolder folder;
    std::shared_ptr<Files> files;

private:
    std::map<std::string, std::string> preferences_;
    std::map<std::string, std::map<std::string, std::string>> limits_;
    std::string raw_parameters_;
};

}  // namespace korvane
