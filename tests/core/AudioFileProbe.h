#pragma once

#include <cstdint>
#include <filesystem>
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

/// Writes a 16-bit mono PCM WAV file.
void writeWav(const std::filesystem::path& path, int sampleRateHz,
              const std::vector<std::int16_t>& samples);

/// A sine tone as 16-bit samples.
std::vector<std::int16_t> sineSamples(double frequencyHz, double amplitude, int sampleRateHz,
                                      std::size_t count);

}  // namespace kelvo::testing
