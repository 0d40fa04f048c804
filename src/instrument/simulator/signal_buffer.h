// The ions' signal of one spectrum before digitisation, in 1/64 counts. Blocks of samples without signal cost nothing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane::simulation {

class SignalBuffer {
public:
    static constexpr int fraction_bits = 6;
    static constexpr std::size_t block_samples = 256;

    /// Empties the buffer; a sample never exceeds `full_scale_counts`, which is at most 50,000 times 255.
    void reset(std::size_t sample_count, double full_scale_counts) {
        const std::size_t blocks = (sample_count + block_samples - 1) / block_samples;
        if (samples_.size() != blocks * block_samples) {
            samples_.assign(blocks * block_samples, 0);
            used_.assign(blocks, 0);
        }
        sample_count_ = sample_count;
        limit_ = static_cast<std::int64_t>(full_scale_counts) << fraction_bits;
    }

    std::size_t sample_count() const { return sample_count_; }
    std::size_t block_count() const { return used_.size(); }

    /// Adds 1/64 counts to a sample within the spectrum.
    void add(std::size_t sample, std::int64_t amount) {
        used_[sample / block_samples] = 1;
        samples_[sample] = static_cast<std::int32_t>(std::min(samples_[sample] + amount, limit_));
    }
    /// The samples of a block that holds signal, else null.
    const std::int32_t* block(std::size_t number) const {
        return used_[number] ? &samples_[number * block_samples] : nullptr;
    }
    void clear_block(std::size_t number) {
        if (!used_[number]) return;
        std::fill_n(samples_.begin() + static_cast<std::ptrdiff_t>(number * block_samples), block_samples, 0);
        used_[number] = 0;
    }

private:
    std::vector<std::int32_t> samples_;
    std::vector<std::uint8_t> used_;
    std::size_t sample_count_ = 0;
    std::int64_t limit_ = 0;
};

}  // namespace korvane::simulation
