// Arrays, records and values that cross the public face and the instrument seam.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "korvane/error.h"

namespace korvane {

/// One-dimensional array, or nothing. Elements are shared and immutable, so that copies of a spectrum cost nothing.
/// An array with no elements is not empty in this sense: its upper bound is lower bound - 1.
template <class T>
class VariantArray {
public:
    VariantArray() = default;
    VariantArray(std::vector<T> elements, std::int32_t lower_bound = 0)  // NOLINT: meant to convert
        : elements_(std::make_shared<const std::vector<T>>(std::move(elements))), lower_bound_(lower_bound) {}
    explicit VariantArray(std::shared_ptr<const std::vector<T>> elements, std::int32_t lower_bound = 0)
        : elements_(std::move(elements)), lower_bound_(lower_bound) {}

    bool is_empty() const noexcept { return elements_ == nullptr; }
    std::size_t size() const noexcept { return elements_ ? elements_->size() : 0; }

    /// Error 13 when empty.
    std::int32_t lower_bound() const {
        require_array();
        return lower_bound_;
    }
    /// Highest index; error 13 when empty.
    std::int32_t upper_bound() const {
        require_array();
        return lower_bound_ + static_cast<std::int32_t>(elements_->size()) - 1;
    }
    /// Error 13 when empty, 9 when `index` lies outside the bounds.
    const T& at(std::int32_t index) const {
        require_array();
        const auto offset = static_cast<std::int64_t>(index) - lower_bound_;
        if (offset < 0 || offset >= static_cast<std::int64_t>(elements_->size()))
            raise_runtime_fault(error_number::subscript, "index " + std::to_string(index));
        return (*elements_)[static_cast<std::size_t>(offset)];
    }
    /// All elements from the lower bound on; no elements when empty.
    std::span<const T> elements() const noexcept {
        return elements_ ? std::span<const T>(*elements_) : std::span<const T>();
    }
    /// The shared storage itself; null when empty.
    const std::shared_ptr<const std::vector<T>>& storage() const noexcept { return elements_; }

private:
    void require_array() const {
        if (!elements_) raise_runtime_fault(error_number::type_mismatch);
    }

    std::shared_ptr<const std::vector<T>> elements_;
    std::int32_t lower_bound_ = 0;
};

/// Two-dimensional array, both lower bounds 0; rows are the first index.
template <class T>
class VariantMatrix {
public:
    VariantMatrix() = default;
    VariantMatrix(std::size_t rows, std::size_t columns) : rows_(rows), columns_(columns), elements_(rows * columns) {}

    std::size_t rows() const noexcept { return rows_; }
    std::size_t columns() const noexcept { return columns_; }
    /// Error 9 outside the bounds.
    T& at(std::size_t row, std::size_t column) { return elements_[offset(row, column)]; }
    const T& at(std::size_t row, std::size_t column) const { return elements_[offset(row, column)]; }

private:
    std::size_t offset(std::size_t row, std::size_t column) const {
        if (row >= rows_ || column >= columns_)
            raise_runtime_fault(error_number::subscript,
                                "index (" + std::to_string(row) + ", " + std::to_string(column) + ")");
        return row * columns_ + column;
    }

    std::size_t rows_ = 0;
    std::size_t columns_ = 0;
    std::vector<T> elements_;
};

/// Positions, in a spectrum's metadata, of the experiment entry and the polarity entry.
struct META_INDEX {
    std::int32_t lExpIndex = 0;
    std::int32_t lPolarityIndex = 0;
};

/// The peak finder's record of eight doubles. Positions on the axis (apex, start, centroid, end) and the width are in
/// nanoseconds, or in amu after conversion; area is in counts x samples, height in counts, resolution is m / FWHM.
struct PeakInfo {
    double pkApexX = 0;       ///< 0: apex of the interpolated peak
    double pkStart = 0;       ///< 1: where the peak rises from the baseline or from the valley to its neighbour
    double pkArea = 0;        ///< 2: sum of the samples above the baseline
    double pkCentroid = 0;    ///< 3: background-corrected centre of gravity
    double pkWidth = 0;       ///< 4: full width at half maximum
    double pkHeight = 0;      ///< 5: height above the baseline
    double pkResolution = 0;  ///< 6: m / (full width at half maximum in mass)
    double pkEnd = 0;         ///< 7: where the peak ends

    static constexpr std::size_t value_count = 8;
    /// The value at a record position 0 to 7; error 9 outside.
    double value(std::int32_t position) const {
        if (position < 0 || position >= static_cast<std::int32_t>(value_count))
            raise_runtime_fault(error_number::subscript, "peak record position " + std::to_string(position));
        return std::bit_cast<std::array<double, value_count>>(*this)[static_cast<std::size_t>(position)];
    }
    friend bool operator==(const PeakInfo&, const PeakInfo&) = default;
};

/// Names of the eight record values, in record order.
inline constexpr std::array<const char*, PeakInfo::value_count> peak_info_names{
    "pkApexX", "pkStart", "pkArea", "pkCentroid", "pkWidth", "pkHeight", "pkResolution", "pkEnd"};

/// Standard errors (one standard deviation) that a peak finder may state beside a record, in the record's own units.
struct PeakUncertainty {
    double centroid = 0;
    double height = 0;
    double width = 0;
    double area = 0;
    double ions = 0;  ///< estimated number of ions in the peak
};

/// What a peak finder may tell about a peak beside its record.
struct PeakQuality {
    bool clipped = false;     ///< samples at the detector's limit were left out; height and area are extrapolated
    bool overlapped = false;  ///< measured together with a neighbour whose samples it shares
    bool few_ions = false;    ///< so few that width and height are mostly chance
    double misfit = 1;        ///< root of chi squared per degree of freedom of the fit; the stated errors grow with it
};

/// Calibration coefficients: m = (A (t - B))^2 + used terms c t^p. In nanoseconds or microseconds, by convention of the
/// routine that carries the record.
struct CalibrationCoefficients {
    double A = 0, B = 0, C = 0, D = 0, E = 0, F = 0, G = 0, H = 0;
    friend bool operator==(const CalibrationCoefficients&, const CalibrationCoefficients&) = default;
};

/// The coefficients by their names, in order.
inline constexpr std::pair<const char*, double CalibrationCoefficients::*> calibration_coefficients[] = {
    {"A", &CalibrationCoefficients::A}, {"B", &CalibrationCoefficients::B}, {"C", &CalibrationCoefficients::C},
    {"D", &CalibrationCoefficients::D}, {"E", &CalibrationCoefficients::E}, {"F", &CalibrationCoefficients::F},
    {"G", &CalibrationCoefficients::G}, {"H", &CalibrationCoefficients::H}};

struct CalibrationSettings {
    std::int32_t CalReserved1 = 0;
    std::int32_t CalTraditionalWeighting = 0;
    std::int32_t CalPolynomialWeighting = 0;
    friend bool operator==(const CalibrationSettings&, const CalibrationSettings&) = default;
};

/// Peak attributes of `GetPeakAttribute`; any other value yields 0.
enum class PeakCalcType : std::int32_t {
    TimeCentroid = 1,
    MassCentroid = 2,
    Resolution = 3,
    Width = 4,
    Height = 5,
    Area = 6
};

/// The polarity setpoint's value as the instrument interface names it.
enum class PolaritySetpoint : std::int32_t { Positive = 0, Negative = 1 };

/// One value of a spectrum's metadata, of the data dictionary or of an actual-value read: nothing, a number, or a text.
using InstrumentValue = std::variant<std::monostate, std::int32_t, double, std::string>;

/// One name/value item of a spectrum's metadata list.
struct MetaItem {
    std::string name;
    InstrumentValue value;
};

/// A setpoint value in the type in which it is written.
using SetpointValue = std::variant<double, std::int32_t, std::int16_t>;

/// Marks an optional bound or step of the abundance search as not given.
inline constexpr double search_value_not_given = -123456789.0;
/// Marks a setpoint's new value as not given.
inline constexpr double setpoint_value_not_given = -999999.0;

}  // namespace korvane
