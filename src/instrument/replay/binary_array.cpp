#include "instrument/replay/binary_array.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace korvane::replay {

namespace {

using Bytes = std::vector<unsigned char>;

static_assert(std::endian::native == std::endian::little, "mzML arrays are little-endian");

constexpr std::string_view base64_alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

Bytes decode_base64(std::string_view text, const RecordingPlace& place, const std::string& array) {
    std::string packed(text);
    std::erase_if(packed, [](char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; });
    if (packed.size() % 4 != 0)
        place.fail(array + ": the base64 text is cut off (" + std::to_string(packed.size()) + " characters)");
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
        if (value == base64_alphabet.size())
            place.fail(array + ": character " + std::to_string(i + 1) + " is not base64");
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

Bytes inflated(const Bytes& packed, std::size_t size, const RecordingPlace& place, const std::string& array) {
    Bytes bytes(size);
    auto written = static_cast<uLongf>(size);
    auto taken = static_cast<uLong>(packed.size());
    const int result = uncompress2(bytes.data(), &written, packed.data(), &taken);
    if (result == Z_BUF_ERROR)
        place.fail(array + ": the data do not end with the " + std::to_string(size) + " bytes of its length");
    if (result != Z_OK) place.fail(array + ": zlib refuses the data: " + zError(result));
    if (written != size)
        place.fail(array + ": the data unpack to " + std::to_string(written) + " bytes, not the " +
                   std::to_string(size) + " of its length");
    if (taken != packed.size()) place.fail(array + ": bytes follow the compressed data");
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

template <class Float>
std::vector<double> numbers_of(const Bytes& bytes) {
    std::vector<Float> numbers(bytes.size() / sizeof(Float));
    std::memcpy(numbers.data(), bytes.data(), bytes.size());
    return {numbers.begin(), numbers.end()};
}

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
    const std::size_t size = count * (encoding.is_64_bit ? sizeof(double) : sizeof(float));
    // Compressed data are hardly ever longer than what they hold; this also keeps the sizes within zlib's integers.
    if (bytes.size() > size + size / 100 + 1024)
        place.fail(array + ": " + std::to_string(bytes.size()) + " bytes of data are too many for its length");
    if (encoding.is_zlib) bytes = inflated(bytes, size, place, array);
    if (bytes.size() != size)
        place.fail(array + ": the data have " + std::to_string(bytes.size()) + " bytes, not the " +
                   std::to_string(size) + " of its length");
    return encoding.is_64_bit ? numbers_of<double>(bytes) : numbers_of<float>(bytes);
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
