#include "instrument/replay/binary_array.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

namespace korvane::replay {

namespace {

using Bytes = std::vector<unsigned char>;

static_assert(std::endian::native == std::endian::little, "mzML arrays are little-endian");

constexpr std::string_view base64_alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

Bytes decode_base64(std::string_view text, const RecordingPlace& place, const std::string& array) {
    std::string packed(text);
    std::erase_if(packed, [](char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; });
    if (packed.size() % 4 != 0) place.fail(array, ": the base64 text is cut off (", packed.size(), " characters)");
    const std::size_t padding = packed.ends_with("==") ? 2 : packed.ends_with('=') ? 1 : 0;
    std::fill_n(packed.rbegin(), padding, base64_alphabet.front());
    std::array<std::uint32_t, 256> values{};
    values.fill(base64_alphabet.size());
    for (const char c : base64_alphabet) values[static_cast<unsigned char>(c)] = base64_alphabet.find(c);
    Bytes bytes;
    bytes.reserve(packed.size() / 4 * 3);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < packed.size(); ++i) {
        const std::uint32_t value = values[static_cast<unsigned char>(packed[i])];
        if (value == base64_alphabet.size()) place.fail(array, ": character ", i + 1, " is not base64");
        group = group << 6 | value;
        if (i % 4 == 3)
            for (const int shift : {16, 8, 0}) bytes.push_back(static_cast<unsigned char>(group >> shift));
    }
    bytes.resize(bytes.size() - padding);
    return bytes;
}

std::string encode_base64(Bytes bytes) {
    const std::size_t padding = (3 - bytes.size() % 3) % 3;
    bytes.resize(bytes.size() + padding);
    std::string text;
    text.reserve(bytes.size() / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::uint32_t group = bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2];
        for (const int shift : {18, 12, 6, 0}) text.push_back(base64_alphabet[group >> shift & 63U]);
    }
    std::fill_n(text.rbegin(), padding, '=');
    return text;
}

/// At most `size` bytes.
Bytes inflated(const Bytes& packed, std::size_t size, const RecordingPlace& place, const std::string& array) {
    constexpr std::size_t best_ratio = 1032;  // of deflate
    Bytes bytes(std::min(size, packed.size() * best_ratio));
    auto written = static_cast<uLongf>(bytes.size());
    auto taken = static_cast<uLong>(packed.size());
    const int result = uncompress2(bytes.data(), &written, packed.data(), &taken);
    if (result == Z_BUF_ERROR) place.fail(array, ": the data do not end with the ", size, " bytes of its length");
    if (result != Z_OK) place.fail(array, ": zlib refuses the data: ", zError(result));
    if (taken != packed.size()) place.fail(array, ": bytes follow the compressed data");
    bytes.resize(written);
    return bytes;
}

Bytes deflated(const Bytes& bytes) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    Bytes packed(size);
    if (compress(packed.data(), &size, bytes.data(), static_cast<uLong>(bytes.size())) != Z_OK)
        throw Error(error_number::file_or_element, "RecordingWriter", "zlib cannot compress a binary array");
    packed.resize(size);
    return packed;
}

template <class Number>
std::vector<double> numbers_of(const Bytes& bytes) {
    std::vector<Number> numbers(bytes.size() / sizeof(Number));
    std::memcpy(numbers.data(), bytes.data(), bytes.size());
    return {numbers.begin(), numbers.end()};
}

/// Reads the numeric compressions: a scale as a big-endian double, but for integers, and then little-endian words of
/// two bytes or integers in half bytes, the upper half first: the number of leading half bytes, 0 (to 8) or 15 (8
/// less), then the others from the lowest on.
class NumpressReader {
public:
    NumpressReader(const Bytes& bytes, const RecordingPlace& place, const std::string& array)
        : bytes_(bytes), place_(place), array_(array) {}

    /// Fails where the data end early.
    std::vector<double> read(Numpress kind) {
        double scale = 1;
        if (kind != Numpress::positive_integer) {
            std::uint64_t bits = 0;
            for (int byte = 0; byte < 8; ++byte) bits = bits << 8 | little_endian(1);
            scale = std::bit_cast<double>(bits);
        }
        std::vector<double> numbers;
        std::uint32_t before = 0, last = 0;  // wrapping around, as the writer's integers do
        while (!at_end()) {
            if (kind == Numpress::short_logarithm) {
                numbers.push_back(std::exp(little_endian(2) / scale) - 1);
                continue;
            }
            const bool is_start = kind == Numpress::linear && numbers.size() < 2;
            std::uint32_t value = is_start ? little_endian(4) : packed_integer();
            if (kind == Numpress::linear && !is_start) value += 2 * last - before;
            before = std::exchange(last, value);
            numbers.push_back(static_cast<std::int32_t>(value) / scale);
        }
        return numbers;
    }

private:
    /// A single half byte 0 fills the last byte up.
    bool at_end() const {
        const std::size_t all = 2 * bytes_.size();
        return half_ >= all || (half_ + 1 == all && (bytes_.back() & 15U) == 0);
    }
    std::uint32_t half_byte() {
        if (half_ >= 2 * bytes_.size()) place_.fail(array_, ": the numeric compression ends early");
        const unsigned char byte = bytes_[half_ / 2];
        return half_++ % 2 == 0 ? byte >> 4U : byte & 15U;
    }
    std::uint32_t little_endian(int count) {
        std::uint32_t value = 0;
        for (int shift = 0; shift < 8 * count; shift += 8) {
            const std::uint32_t upper = half_byte();
            value |= (upper << 4U | half_byte()) << shift;
        }
        return value;
    }
    std::uint32_t packed_integer() {
        const std::uint32_t head = half_byte(), leading = head <= 8 ? head : head - 8;
        std::uint32_t value = head <= 8 ? 0 : ~(~0U >> (4 * leading));
        for (std::uint32_t shift = 0; shift < 4 * (8 - leading); shift += 4) value |= half_byte() << shift;
        return value;
    }

    const Bytes& bytes_;
    const RecordingPlace& place_;
    const std::string& array_;
    std::size_t half_ = 0;  // half bytes read
};

template <class Float>
Bytes bytes_of(std::span<const double> numbers) {
    const std::vector<Float> floats(numbers.begin(), numbers.end());
    Bytes bytes(floats.size() * sizeof(Float));
    std::memcpy(bytes.data(), floats.data(), bytes.size());
    return bytes;
}

}  // namespace

std::vector<double> decode_numbers(std::string_view base64, const BinaryEncoding& encoding, std::size_t count,
                                   const RecordingPlace& place, const std::string& array) {
    Bytes bytes = decode_base64(base64, place, array);
    const bool is_plain = encoding.numpress == Numpress::none;
    // A number takes at most five bytes by the numeric compressions, beside their scale.
    const std::size_t size = is_plain ? count * (encoding.is_64_bit ? 8 : 4) : 5 * count + 16;
    // Compressed data are hardly ever longer than what they hold; this also keeps the sizes within zlib's integers.
    if (bytes.size() > size + size / 100 + 1024)
        place.fail(array, ": ", bytes.size(), " bytes of data are too many for its length");
    if (encoding.is_zlib) bytes = inflated(bytes, size, place, array);
    if (is_plain && bytes.size() != size)
        place.fail(array, ": the data have ", bytes.size(), " bytes, not the ", size, " of its length");
    if (is_plain && encoding.is_integer)
        return encoding.is_64_bit ? numbers_of<std::int64_t>(bytes) : numbers_of<std::int32_t>(bytes);
    if (is_plain) return encoding.is_64_bit ? numbers_of<double>(bytes) : numbers_of<float>(bytes);
    std::vector<double> numbers = NumpressReader(bytes, place, array).read(encoding.numpress);
    if (numbers.size() != count)
        place.fail(array, ": the data have ", numbers.size(), " numbers, not the ", count, " of its length");
    return numbers;
}

std::string gunzipped(std::string_view bytes, const RecordingPlace& place) {
    constexpr int gzip_header = 16;
    constexpr std::size_t part = std::size_t{1} << 20;
    const std::size_t most = most_bytes_for_one * bytes.size() + part;
    std::string content;
    z_stream stream{};
    if (inflateInit2(&stream, MAX_WBITS + gzip_header) != Z_OK) place.fail("zlib cannot start");
    const std::unique_ptr<z_stream, int (*)(z_stream*)> end(&stream, inflateEnd);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    for (int result = Z_OK; result != Z_STREAM_END || stream.avail_in > 0;) {
        if (result == Z_STREAM_END) inflateReset(&stream);  // members follow each other
        const std::size_t before = content.size();
        content.resize(before + part);
        stream.next_out = reinterpret_cast<Bytef*>(content.data() + before);
        stream.avail_out = part;
        result = inflate(&stream, Z_NO_FLUSH);
        content.resize(content.size() - stream.avail_out);
        const bool goes_on = result == Z_OK && (stream.avail_in > 0 || stream.avail_out == 0);
        if (result != Z_STREAM_END && !goes_on)
            place.fail("gzip: ", (result == Z_OK || result == Z_BUF_ERROR ? "cut off" : zError(result)));
        if (content.size() > most) place.fail("gzip: unpacks to more than ", most, " bytes");
    }
    return content;
}

std::string encode_numbers(std::span<const double> numbers, const BinaryEncoding& encoding) {
    const Bytes bytes = encoding.is_64_bit ? bytes_of<double>(numbers) : bytes_of<float>(numbers);
    return encode_base64(encoding.is_zlib ? deflated(bytes) : bytes);
}

bool fits_32_bit(std::span<const double> numbers) {
    constexpr double largest = std::numeric_limits<float>::max();
    return std::ranges::all_of(numbers, [](double number) {
        return std::abs(number) <= largest && static_cast<double>(static_cast<float>(number)) == number;
    });
}

}  // namespace korvane::replay
