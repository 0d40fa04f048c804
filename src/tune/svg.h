// Scalable vector graphics: panels with axes, and what is drawn in them. Colours and widths are classes of the style in
// data/report/style.css.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::svg {

/// Text for HTML and SVG, also inside quotes. What would break or reorder a line (control characters, marks of writing
/// direction) is shown by its number, "[U+202E]"; what is no UTF-8 is U+FFFD.
std::string escaped(std::string_view text);

struct Range {
    double low = 0, high = 0;

    /// Numbers that are not finite change nothing.
    void include(double value);
    /// Widened to both sides by a part of itself; a range of one value by that part of the value, or by 1.
    Range widened(double part) const;
    bool holds(double value) const { return value >= low && value <= high; }
};
/// The least that holds the first value given; empty ranges hold nothing.
Range range_of(std::span<const double> values);

struct Tick {
    double value = 0;
    std::string text;
};
/// About so many multiples of 1, 2 or 5 times a power of ten.
std::vector<Tick> nice_ticks(const Range& range, int about);

struct Axis {
    Range range;
    std::string label = {};
    std::vector<Tick> ticks = {};
};

struct Point {
    double x = 0, y = 0;
    double error = 0;  ///< half length of the error bar; none where not above 0
};

enum class Marker { dot, square, triangle, diamond, cross };

/// A part of a picture with axes of its own. Styles are class names. Points that are not finite or lie beside the x
/// axis are left out; y is cut at the panel's edge.
class Panel {
public:
    /// In units of the picture, from its left upper corner; of the area between the axes.
    struct Place {
        double left = 0, top = 0, width = 0, height = 0;
    };
    /// Draws the axes.
    Panel(const Place& place, const Axis& x, const Axis& y);

    /// In ascending x. Of points that share a column one unit wide the lowest and the highest are drawn.
    void line(std::span<const Point> points, std::string_view style);
    void markers(std::span<const Point> points, Marker marker, std::string_view style);
    /// Lines from y = 0 to the points.
    void stems(std::span<const Point> points, std::string_view style);
    /// Nothing where the value lies beside the axis.
    void across(double y, std::string_view style);
    void upright(double x, std::string_view style);
    void shade(double from_x, double to_x, std::string_view style);
    /// Beside a point.
    void label(const Point& point, std::string_view text);
    /// One entry of the row above the panel: a marker, or a line without one, and its text.
    void legend(std::string_view text, std::string_view style, std::optional<Marker> marker = {});

    const std::string& content() const { return content_; }

private:
    /// A path of two classes; nothing where it is empty.
    void put(std::string_view kind, std::string_view style, std::string_view path);
    double at_x(double value) const;
    double at_y(double value) const;
    bool is_drawn(const Point& point) const;

    Place place_;
    Range x_, y_;
    double legend_at_;
    std::string content_;
};

/// A picture that says what it shows: title and description, for who does not see it.
std::string picture(std::string_view title, std::string_view description, double width, double height,
                    std::string_view content);

}  // namespace korvane::svg
