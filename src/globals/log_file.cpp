#include "globals/log_file.h"

#include "frame/lazy_instrument.h"
#include "platform/text.h"
#ifdef _WIN32
#include "platform/windows_text.h"
#endif

namespace korvane {

namespace {

#ifdef _WIN32
constexpr std::string_view line_end = "\r\n";

void append_log_text(std::string& out, std::string_view text) {
    const std::wstring wide = utf16_from_utf8(text);
    const int length = static_cast<int>(wide.size());
    const int size = WideCharToMultiByte(CP_ACP, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    const std::size_t before = out.size();
    out.resize(before + static_cast<std::size_t>(size));
    WideCharToMultiByte(CP_ACP, 0, wide.data(), length, out.data() + before, size, nullptr, nullptr);
}
#else
constexpr std::string_view line_end = "\n";

void append_log_text(std::string& out, std::string_view text) {
    out += text;
}
#endif

}  // namespace

void LogFile::open(const std::string& name, std::string_view header) {
    const std::string path = join_path(join_path(base_folder(*instrument_), "Logfiles"), name);
    file_ = files_->open_append(path);
    path_ = path;
    write_line(header);
}

void LogFile::write_line(std::string_view line) {
    line_.clear();
    append_log_text(line_, line);
    line_ += line_end;
    file_->write(line_);
}

std::string dated_log_name(std::string_view stem, const LocalTime& time) {
    return text_of(stem, "_", date_yyyymmdd(time), "_", time_hhmmss(time), ".txt");
}

}  // namespace korvane
