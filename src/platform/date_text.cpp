#include <fmt/format.h>

#include <chrono>
#include <clocale>
#include <ctime>

#include "korvane/error.h"
#include "platform/automation_arithmetic.h"
#include "platform/windows_text.h"
#ifdef _WIN32
#include <oleauto.h>
#endif

namespace korvane {

namespace {

std::tm calendar_parts(const LocalTime& time) {
    std::tm parts{};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.month - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.minute;
    parts.tm_sec = time.second;
    parts.tm_isdst = -1;
    return parts;
}

}  // namespace

std::string utc_text(const LocalTime& time) {
    std::tm parts = calendar_parts(time);
    const auto instant = std::chrono::sys_seconds(std::chrono::seconds(std::mktime(&parts)));
    const auto midnight = std::chrono::floor<std::chrono::days>(instant);
    const std::chrono::year_month_day day(midnight);
    const std::chrono::hh_mm_ss clock(instant - midnight);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(day.year()),
                       static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()), clock.hours().count(),
                       clock.minutes().count(), clock.seconds().count());
}

std::string date_yyyymmdd(const LocalTime& time) {
    return fmt::format("{:04}{:02}{:02}", time.year, time.month, time.day);
}

std::string time_hhmmss(const LocalTime& time) {
    return fmt::format("{:02}{:02}{:02}", time.hour, time.minute, time.second);
}

std::string date_yymmdd(const LocalTime& time) {
    return fmt::format("{:02}{:02}{:02}", time.year % 100, time.month, time.day);
}

#ifdef _WIN32

std::string general_date_text(const LocalTime& time) {
    SYSTEMTIME parts{};
    parts.wYear = static_cast<WORD>(time.year);
    parts.wMonth = static_cast<WORD>(time.month);
    parts.wDay = static_cast<WORD>(time.day);
    parts.wHour = static_cast<WORD>(time.hour);
    parts.wMinute = static_cast<WORD>(time.minute);
    parts.wSecond = static_cast<WORD>(time.second);
    DATE date = 0;
    BSTR text = nullptr;
    if (!SystemTimeToVariantTime(&parts, &date) || FAILED(VarBstrFromDate(date, LOCALE_USER_DEFAULT, 0, &text)))
        raise_runtime_fault(error_number::type_mismatch, date_yyyymmdd(time) + " " + time_hhmmss(time));
    const std::string result = utf8_from_utf16(std::wstring_view(text, SysStringLen(text)));
    SysFreeString(text);
    return result;
}

#else

std::string general_date_text(const LocalTime& time) {
    // The general format leaves midnight out: it stands for a date without a time.
    const bool is_midnight = time.hour == 0 && time.minute == 0 && time.second == 0;
    const std::string_view locale = std::setlocale(LC_TIME, nullptr);
    if (locale != "POSIX" && locale != "C" && !locale.starts_with("C.")) {
        const std::tm parts = calendar_parts(time);
        char text[200];
        return {text, std::strftime(text, sizeof text, is_midnight ? "%x" : "%x %X", &parts)};
    }
    const std::string date = fmt::format("{}/{}/{}", time.month, time.day, time.year);
    if (is_midnight) return date;
    const int hour = time.hour % 12 == 0 ? 12 : time.hour % 12;
    return fmt::format("{} {}:{:02}:{:02} {}", date, hour, time.minute, time.second, time.hour < 12 ? "AM" : "PM");
}

#endif

}  // namespace korvane
