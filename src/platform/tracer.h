// Seam: the acquisition software's tracer, one object a thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace korvane {

inline constexpr std::string_view tracer_prog_id = "quillkit.trace.1";

class Tracer {
public:
    virtual ~Tracer() = default;
    virtual void set_module_name(const std::string& name) = 0;
    virtual bool trace_flag() = 0;
    virtual void entry(const std::string& routine, std::int32_t level) = 0;
    virtual void exit(const std::string& routine, std::int32_t level) = 0;
    virtual void trace_print(const std::string& text, const std::string& routine, std::int32_t level) = 0;
};

class TracerFactory {
public:
    TracerFactory();
    TracerFactory(const TracerFactory&) = delete;
    TracerFactory& operator=(const TracerFactory&) = delete;
    virtual ~TracerFactory() = default;

    /// Different for every factory of the process, also after one has gone: the key of per-thread trace state.
    std::uint64_t id() const noexcept { return id_; }
    virtual std::unique_ptr<Tracer> create(std::string_view prog_id) = 0;

private:
    std::uint64_t id_;
};

/// Appends lines to the file named by the environment variable KORVANE_TRACE ("-": standard error); on when it is set.
std::shared_ptr<TracerFactory> make_file_tracer_factory();

}  // namespace korvane
