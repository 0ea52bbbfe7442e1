#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace kelvo::testing {

/// What libavformat reports about a file's first audio stream, read independently of the code
/// under test. Throws std::runtime_error when the file cannot be opened or has no audio stream.
struct AudioFileInfo {
    std::string codecName;    // e.g. "aac"
    std::string profileName;  // e.g. "LC"
    int sampleRateHz = 0;
    int channelCount = 0;
    double durationSeconds = 0;  // the container's duration
};

AudioFileInfo probeAudioFile(const std::filesystem::path& path);

/// Decodes the first audio stream's first channel to floats in [-1, 1] at its own rate.
std::vector<float> decodeFirstChannel(const std::filesystem::path& path);

/// Root mean square of `samples` (0 for none).
double rms(const std::vector<float>& samples);

/// Writes a 16-bit mono PCM WAV file (defined here: tests without libav use it too).
inline void writeWav(const std::filesystem::path& path, int sampleRateHz,
                     const std::vector<std::int16_t>& samples) {
    std::ofstream out(path, std::ios::binary);
    auto u32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
    auto u16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
    const auto dataBytes = static_cast<std::uint32_t>(samples.size() * 2);
    out.write("RIFF", 4);
    u32(36 + dataBytes);
    out.write("WAVEfmt ", 8);
    u32(16);
    u16(1);  // PCM
    u16(1);  // mono
    u32(static_cast<std::uint32_t>(sampleRateHz));
    u32(static_cast<std::uint32_t>(sampleRateHz) * 2);
    u16(2);
    u16(16);
    out.write("data", 4);
    u32(dataBytes);
    out.write(reinterpret_cast<const char*>(samples.data()), dataBytes);
    if (!out) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

/// A sine tone as 16-bit samples.
std::vector<std::int16_t> sineSamples(double frequencyHz, double amplitude, int sampleRateHz,
                                      std::size_t count);

}  // namespace kelvo::testing
