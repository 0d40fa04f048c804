// A tracer that keeps what it is told, a line an event: "> Name" entry, "< Name" exit, "Name: text" print.
#pragma once

#include <algorithm>

#include "korvane/error.h"
#include "korvane/system.h"

namespace korvane {

using Lines = std::vector<std::string>;

struct TraceRecord {
    bool on = true;
    std::string module_name;
    Lines lines;
    std::vector<std::int32_t> levels;  // of the entries, in order
    std::string failing;               // the call that fails, if any: "create", "entry", "print" or "exit"

    void call(const std::string& name) const {
        if (name == failing) throw Error(-99, "Tracer", name);
    }

    bool contains(const std::string& line) const { return std::ranges::count(lines, line) > 0; }
};

class RecordingTracerFactory final : public TracerFactory {
public:
    std::unique_ptr<Tracer> create(std::string_view) override {
        record->call("create");
        ++created;
        return std::make_unique<Recorder>(record);
    }

    std::shared_ptr<TraceRecord> record = std::make_shared<TraceRecord>();
    int created = 0;

private:
    class Recorder final : public Tracer {
    public:
        explicit Recorder(std::shared_ptr<TraceRecord> record) : record_(std::move(record)) {}
        void set_module_name(const std::string& name) override { record_->module_name = name; }
        bool trace_flag() override { return record_->on; }
        void entry(const std::string& routine, std::int32_t level) override {
            record_->call("entry");
            record_->lines.push_back("> " + routine);
            record_->levels.push_back(level);
        }
        void exit(const std::string& routine, std::int32_t) override {
            record_->call("exit");
            record_->lines.push_back("< " + routine);
        }
        void trace_print(const std::string& text, const std::string& routine, std::int32_t) override {
            record_->call("print");
            record_->lines.push_back(routine + ": " + text);
        }

    private:
        std::shared_ptr<TraceRecord> record_;
    };
};

class RecordingMessageBox final : public MessageBox {
public:
    void show(const std::string& text, const std::string& title) override { shown.push_back(title + " | " + text); }
    std::vector<std::string> shown;
};

}  // namespace korvane
