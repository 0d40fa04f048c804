#include "instrument/replay/binary_array.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace korvane::replay {

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::string_view base64_alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char not_base64 = 255;

constexpr std::array<unsigned char, 256> make_base64_values() {
    std::array<unsigned char, 256> values{};
    for (auto& value : values) value = not_base64;
    for (std::size_t i = 0; i < base64_alphabet.size(); ++i)
        values[static_cast<unsigned char>(base64_alphabet[i])] = static_cast<unsigned char>(i);
    return values;
}
constexpr auto base64_values = make_base64_values();

bool is_space(char c) {
    return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}

std::string without_spaces(std::string_view text) {
    std::string packed(text);
    std::erase_if(packed, is_space);
    return packed;
}

Bytes decode_base64(std::string_view text, const RecordingPlace& place, const std::string& array) {
    const std::string packed = without_spaces(text);
    if (packed.size() % 4 != 0)
        place.fail(array + ": the base64 text is cut off (" + std::to_string(packed.size()) + " characters)");
    std::size_t padding = 0;
    while (padding < 2 && padding < packed.size() && packed[packed.size() - 1 - padding] == '=') ++padding;
    Bytes bytes(packed.size() / 4 * 3 - padding);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < packed.size(); ++i) {
        const bool is_padding = i >= packed.size() - padding;
        const unsigned char value = is_padding ? 0 : base64_values[static_cast<unsigned char>(packed[i])];
        if (value == not_base64) place.fail(array + ": character " + std::to_string(i + 1) + " is not base64");
        group = group << 6 | value;
        if (i % 4 != 3) continue;
        for (std::size_t k = 0; k < 3 && i / 4 * 3 + k < bytes.size(); ++k)
            bytes[i / 4 * 3 + k] = static_cast<unsigned char>(group >> (16 - 8 * k));
        group = 0;
    }
    return bytes;
}

std::string encode_base64(const Bytes& bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t taken = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k) group = group << 8 | (k < taken ? bytes[i + k] : 0U);
        for (std::size_t k = 0; k < 4; ++k)
            text.push_back(k <= taken ? base64_alphabet[group >> (18 - 6 * k) & 63U] : '=');
    }
    return text;
}

Bytes inflate_exactly(Bytes& packed, std::size_t size, const RecordingPlace& place, const std::string& array) {
    Bytes bytes(size);
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK) place.fail(array + ": zlib cannot be started");
    unsigned char nowhere = 0;  // zlib wants an address even for no bytes
    stream.next_in = packed.empty() ? &nowhere : packed.data();
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = bytes.empty() ? &nowhere : bytes.data();
    stream.avail_out = static_cast<uInt>(size);
    const int result = inflate(&stream, Z_FINISH);
    const std::string reason = stream.msg != nullptr ? stream.msg : "they end too soon";
    const bool unread = stream.avail_in != 0;
    const bool full = stream.avail_out == 0;
    const std::size_t written = stream.total_out;
    inflateEnd(&stream);
    if (result == Z_BUF_ERROR && full)
        place.fail(array + ": the data do not end with the " + std::to_string(size) + " bytes of its length");
    if (result != Z_STREAM_END) place.fail(array + ": zlib refuses the data: " + reason);
    if (!full)
        place.fail(array + ": the data unpack to " + std::to_string(written) + " bytes, not the " +
                   std::to_string(size) + " of its length");
    if (unread) place.fail(array + ": bytes follow the compressed data");
    return bytes;
}

Bytes deflate_all(const Bytes& bytes) {
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    Bytes packed(size);
    if (compress2(packed.data(), &size, bytes.data(), static_cast<uLong>(bytes.size()), Z_DEFAULT_COMPRESSION) != Z_OK)
        throw Error(error_number::file_or_element, "RecordingWriter", "zlib cannot compress a binary array");
    packed.resize(size);
    return packed;
}

template <class Bits, class Float>
std::vector<double> numbers_of(const Bytes& bytes) {
    std::vector<double> numbers(bytes.size() / sizeof(Bits));
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        Bits bits = 0;
        for (std::size_t k = sizeof(Bits); k-- > 0;) bits = bits << 8 | bytes[i * sizeof(Bits) + k];
        numbers[i] = static_cast<double>(std::bit_cast<Float>(bits));
    }
    return numbers;
}

template <class Bits, class Float>
Bytes bytes_of(std::span<const double> numbers) {
    Bytes bytes;
    bytes.reserve(numbers.size() * sizeof(Bits));
    for (const double number : numbers) {
        const auto bits = std::bit_cast<Bits>(static_cast<Float>(number));
        for (std::size_t k = 0; k < sizeof(Bits); ++k) bytes.push_back(static_cast<unsigned char>(bits >> 8 * k));
    }
    return bytes;
}

}  // namespace

std::vector<double> decode_numbers(std::string_view base64, const BinaryEncoding& encoding, std::size_t count,
                                   const RecordingPlace& place, const std::string& array) {
    Bytes bytes = decode_base64(base64, place, array);
    const std::size_t size = count * (encoding.is_64_bit ? 8 : 4);
    // Compressed data are hardly ever longer than what they hold; this also keeps the sizes within zlib's integers.
    if (bytes.size() > size + size / 100 + 1024)
        place.fail(array + ": " + std::to_string(bytes.size()) + " bytes of data are too many for its length");
    if (encoding.is_zlib) bytes = inflate_exactly(bytes, size, place, array);
    if (bytes.size() != size)
        place.fail(array + ": the data have " + std::to_string(bytes.size()) + " bytes, not the " +
                   std::to_string(size) + " of its length");
    return encoding.is_64_bit ? numbers_of<std::uint64_t, double>(bytes) : numbers_of<std::uint32_t, float>(bytes);
}

std::string encode_numbers(std::span<const double> numbers, const BinaryEncoding& encoding) {
    const Bytes bytes =
        encoding.is_64_bit ? bytes_of<std::uint64_t, double>(numbers) : bytes_of<std::uint32_t, float>(numbers);
    return encode_base64(encoding.is_zlib ? deflate_all(bytes) : bytes);
}

bool fits_32_bit(std::span<const double> numbers) {
    constexpr double largest = std::numeric_limits<float>::max();
    return std::all_of(numbers.begin(), numbers.end(), [](double number) {
        return std::abs(number) <= largest && static_cast<double>(static_cast<float>(number)) == number;
    });
}

}  // namespace korvane::replay
