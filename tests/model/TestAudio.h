#pragma once

// Test audio at 16 kHz mono int16: a 440 Hz tone at about -20 dBFS stands for speech, faint
// noise at about -66 dBFS for a quiet room (never digital zeros, which no microphone gives).

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>
#include <vector>

namespace kelvo::test {

inline std::vector<std::int16_t> speechAudio(double seconds) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(seconds * 16000));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<std::int16_t>(3000 * std::sin(2 * M_PI * 440 * i / 16000.0));
    }
    return samples;
}

inline std::vector<std::int16_t> quietAudio(double seconds) {
    std::vector<std::int16_t> samples(static_cast<std::size_t>(seconds * 16000));
    std::uint32_t state = 7;
    for (std::int16_t& sample : samples) {
        state = state * 1664525u + 1013904223u;
        sample = static_cast<std::int16_t>(static_cast<int>(state >> 28) - 8);
    }
    return samples;
}

// Hands the samples to `read` in 4096-frame pieces, the way capture delivers them.
template <typename Read>
void inReads(const std::vector<std::int16_t>& samples, Read&& read) {
    for (std::size_t at = 0; at < samples.size(); at += 4096) {
        read(std::span(samples).subspan(at, std::min<std::size_t>(4096, samples.size() - at)));
    }
}

}  // namespace kelvo::test
