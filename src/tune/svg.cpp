#include "tune/svg.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "platform/xml_source.h"

namespace korvane::svg {

namespace {

constexpr double tick_length = 4, character_width = 6.2, text_height = 12;
constexpr double same_level = 0.3;  // units; less is not seen

/// A place in tenths of a unit, without a decimal point that says nothing.
std::string shown(double place) {
    return fmt::format("{:g}", std::round(place * 10) / 10 + 0.0);
}

template <class Other>
const Other& shown(const Other& other) {
    return other;
}

template <class... Arguments>
std::string composed(std::string_view format, const Arguments&... arguments) {
    return fmt::format(fmt::runtime(format), shown(arguments)...);
}

template <class... Arguments>
void add(std::string& text, std::string_view format, const Arguments&... arguments) {
    text += composed(format, arguments...);
}

constexpr const char* text_format = "<text x=\"{}\" y=\"{}\">{}</text>";

bool breaks_or_reorders_a_line(char32_t code) {
    constexpr std::pair<char32_t, char32_t> ranges[] = {{0, 0x1F},        {0x7F, 0x9F},     {0x61C, 0x61C},
                                                        {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},
                                                        {0xFEFF, 0xFEFF}, {0xFFFE, 0xFFFF}};
    return std::ranges::any_of(ranges, [&](const auto& range) { return code >= range.first && code <= range.second; });
}

struct MarkerShape {
    const char* style;
    double right, down;  // from the point to where the path begins
    const char* path;

    std::string at(double x, double y) const { return composed("M{} {}{}", x + right, y + down, path); }
};

const MarkerShape& shape_of(Marker marker) {
    constexpr static MarkerShape shapes[] = {{"dots", 0, 0, "h0"},  // a line with round ends
                                             {"marks", -3, -3, "h6v6h-6z"},
                                             {"marks", 0, -4, "l4 7h-8z"},
                                             {"marks", 0, -4.5, "l4.5 4.5-4.5 4.5-4.5-4.5z"},
                                             {"strokes", -3.5, -3.5, "l7 7m0-7l-7 7"}};
    return shapes[static_cast<std::size_t>(marker)];
}

/// Least step of 1, 2 or 5 times a power of ten that divides the length into no more parts than that.
double nice_step(double length, int most) {
    const double step = length / most;
    const double power = std::pow(10, std::floor(std::log10(step)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= step * (1 - 1e-9)) return factor * power;
    return 10 * power;
}

}  // namespace

std::string escaped(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::string_view before = text;
        const auto code = take_utf8(text);
        if (!code) {
            text.remove_prefix(1);
            result += "\xEF\xBF\xBD";
        } else if (breaks_or_reorders_a_line(*code)) {
            add(result, "[U+{:04X}]", static_cast<std::uint32_t>(*code));
        } else if (std::u32string_view(U"&<>\"'").find(*code) != std::u32string_view::npos) {
            add(result, "&#{};", static_cast<std::uint32_t>(*code));
        } else {
            result += before.substr(0, before.size() - text.size());
        }
    }
    return result;
}

void Range::include(double value) {
    if (!std::isfinite(value)) return;
    low = std::min(low, value);
    high = std::max(high, value);
}

Range Range::widened(double part) const {
    const double length = high - low;
    double margin = (length > 0 ? length : std::abs(high)) * part;
    if (!(margin > 0)) margin = 1;
    return {low - margin, high + margin};
}

Range range_of(std::span<const double> values) {
    const auto first = std::ranges::find_if(values, [](double value) { return std::isfinite(value); });
    Range range;
    if (first != values.end()) range = {*first, *first};
    for (const double value : values) range.include(value);
    return range;
}

std::vector<Tick> nice_ticks(const Range& range, int about) {
    const double length = range.high - range.low;
    if (!(length > 0) || !std::isfinite(length)) return {};
    const double step = nice_step(length, about);
    const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
    std::vector<Tick> ticks;
    const double first = std::ceil(range.low / step - 1e-9), last = std::floor(range.high / step + 1e-9);
    for (double number = first; number <= last; ++number)
        ticks.push_back({number * step, fmt::format("{:.{}f}", number * step + 0.0, decimals)});
    return ticks;
}

Panel::Panel(const Place& place, const Axis& x, const Axis& y)
    : place_(place), x_(x.range), y_(y.range), legend_at_(place.left) {
    const double right = place.left + place.width, bottom = place.top + place.height;
    std::string grid, values, texts, axes = composed("M{} {}V{}H{}", place.left, place.top, bottom, right);
    for (const Tick& tick : y.ticks) {
        const double at = at_y(tick.value);
        add(grid, "M{} {}H{}", place.left, at, right);
        add(values, text_format, place.left - tick_length, std::rint(at + 4), escaped(tick.text));
    }
    for (const Tick& tick : x.ticks) {
        const double at = at_x(tick.value);
        add(axes, "M{} {}v{}", at, bottom, tick_length);
        add(texts, text_format, std::rint(at), bottom + tick_length + text_height, escaped(tick.text));
    }
    if (!x.label.empty())
        add(texts, text_format, place.left + place.width / 2, bottom + tick_length + 2.2 * text_height,
            escaped(x.label));
    if (!y.label.empty())
        add(texts, "<text transform=\"translate({} {})rotate(-90)\">{}</text>", text_height,
            place.top + place.height / 2, escaped(y.label));
    if (!grid.empty()) add(content_, "<path class=\"grid\" d=\"{}\"/><g class=\"end\">{}</g>", grid, values);
    add(content_, "<path class=\"axis\" d=\"{}\"/><g class=\"mid\">{}</g>", axes, texts);
}

void Panel::put(std::string_view kind, std::string_view style, std::string_view path) {
    if (!path.empty()) add(content_, "<path class=\"{} {}\" d=\"{}\"/>", kind, style, path);
}

double Panel::at_x(double value) const {
    return place_.left + place_.width * (value - x_.low) / (x_.high - x_.low);
}

double Panel::at_y(double value) const {
    const double part = (std::clamp(value, y_.low, y_.high) - y_.low) / (y_.high - y_.low);
    return place_.top + place_.height * (1 - part);
}

bool Panel::is_drawn(const Point& point) const {
    return x_.holds(point.x) && std::isfinite(point.y);
}

void Panel::line(std::span<const Point> points, std::string_view style) {
    std::vector<Point> places;
    const auto draw = [&](const Point& point) {
        const Point place{at_x(point.x), at_y(point.y)};
        // The middle one of three on a level says nothing.
        const auto level = [&](std::size_t back) {
            return std::abs(places[places.size() - back].y - place.y) < same_level;
        };
        if (places.size() > 1 && level(1) && level(2)) places.pop_back();
        places.push_back(place);
    };
    for (std::size_t i = 0; i < points.size();) {
        if (!is_drawn(points[i])) {
            ++i;
            continue;
        }
        const double column = std::floor(at_x(points[i].x));
        std::size_t low = i, high = i;
        for (; i < points.size() && std::floor(at_x(points[i].x)) == column; ++i) {
            if (!is_drawn(points[i])) continue;
            if (points[i].y < points[low].y) low = i;
            if (points[i].y > points[high].y) high = i;
        }
        draw(points[std::min(low, high)]);
        if (low != high) draw(points[std::max(low, high)]);
    }
    std::string path;
    for (const Point& place : places) add(path, "{}{} {}", path.empty() ? "M" : " ", place.x, place.y);
    put("line", style, path);
}

void Panel::markers(std::span<const Point> points, Marker marker, std::string_view style) {
    const MarkerShape& shape = shape_of(marker);
    std::string shapes, bars;
    for (const Point& point : points) {
        if (!is_drawn(point)) continue;
        const double x = at_x(point.x);
        shapes += shape.at(x, at_y(point.y));
        if (point.error > 0) add(bars, "M{} {}V{}", x, at_y(point.y - point.error), at_y(point.y + point.error));
    }
    put("line", style, bars);
    put(shape.style, style, shapes);
}

void Panel::stems(std::span<const Point> points, std::string_view style) {
    std::string path;
    for (const Point& point : points)
        if (is_drawn(point)) add(path, "M{} {}V{}", at_x(point.x), at_y(0), at_y(point.y));
    put("line", style, path);
}

void Panel::across(double y, std::string_view style) {
    if (y_.holds(y)) put("line", style, composed("M{} {}h{}", place_.left, at_y(y), place_.width));
}

void Panel::upright(double x, std::string_view style) {
    if (x_.holds(x)) put("line", style, composed("M{} {}v{}", at_x(x), place_.top, place_.height));
}

void Panel::shade(double from_x, double to_x, std::string_view style) {
    const double from = at_x(std::clamp(from_x, x_.low, x_.high)), to = at_x(std::clamp(to_x, x_.low, x_.high));
    if (from < to)
        add(content_, "<path class=\"{}\" d=\"M{} {}h{}v{}h-{}z\"/>", style, from, place_.top, to - from, place_.height,
            to - from);
}

void Panel::label(const Point& point, std::string_view text) {
    if (is_drawn(point)) add(content_, text_format, at_x(point.x) + 6, at_y(point.y) - 5, escaped(text));
}

void Panel::legend(std::string_view text, std::string_view style, std::optional<Marker> marker) {
    const double y = place_.top - text_height;
    if (marker)
        put(shape_of(*marker).style, style, shape_of(*marker).at(legend_at_ + 8, y));
    else
        put("line", style, composed("M{} {}h16", legend_at_, y));
    add(content_, text_format, legend_at_ + 21, y + 4, escaped(text));
    legend_at_ += 21 + character_width * static_cast<double>(text.size()) + 14;
}

std::string picture(std::string_view title, std::string_view description, double width, double height,
                    std::string_view content) {
    return fmt::format("<svg viewBox=\"0 0 {} {}\" role=\"img\"><title>{}</title><desc>{}</desc>{}</svg>", width,
                       height, escaped(title), escaped(description), content);
}

}  // namespace korvane::svg
