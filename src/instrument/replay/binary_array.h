// The binary arrays of mzML: little-endian numbers in base64, perhaps compressed.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "instrument/replay/recording.h"

namespace korvane::replay {

/// The numeric compressions of Teleman et al., Mol. Cell. Proteomics 13 (2014) 1537, which come in the place of the
/// numbers' type, before zlib.
enum class Numpress { none, linear, positive_integer, short_logarithm };

struct BinaryEncoding {
    bool is_64_bit = true;  ///< else 32-bit
    bool is_zlib = true;    ///< else not compressed
    bool is_integer = false;
    Numpress numpress = Numpress::none;
};

/// Decodes exactly `count` numbers; white space in the text is passed over. Never allocates more than `count` numbers
/// and the text need, whatever the compressed data unpack to. Fails at `place` naming `array` for text that is not
/// base64, data that zlib refuses, and any other length.
std::vector<double> decode_numbers(std::string_view base64, const BinaryEncoding& encoding, std::size_t count,
                                   const RecordingPlace& place, const std::string& array);

/// Unpacks gzip; fails at `place` for data that zlib refuses and for a content longer than `recording.h` allows.
std::string gunzipped(std::string_view bytes, const RecordingPlace& place);

/// The inverse of `decode_numbers`, for floating point without numeric compression; 32-bit rounds.
std::string encode_numbers(std::span<const double> numbers, const BinaryEncoding& encoding);

/// True when every number is a 32-bit float exactly.
bool fits_32_bit(std::span<const double> numbers);

}  // namespace korvane::replay
