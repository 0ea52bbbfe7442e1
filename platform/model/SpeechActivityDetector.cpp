#include "platform/model/SpeechActivityDetector.h"

#include <algorithm>
#include <cmath>

namespace kelvo::platform {
namespace {

constexpr double kMarginDecibels = 12.0;
constexpr double kAbsoluteThresholdDecibels = -45.0;
constexpr double kSilenceDecibels = -100.0;

double frameDecibels(std::span<const float> frame) {
    double sum = 0;
    for (const float sample : frame) {
        sum += static_cast<double>(sample) * sample;
    }
    const double rms = std::sqrt(sum / static_cast<double>(frame.size()));
    return rms > 0 ? std::max(kSilenceDecibels, 20.0 * std::log10(rms)) : kSilenceDecibels;
}

}  // namespace

std::vector<bool> SpeechActivityDetector::classify(std::span<const float> samples) {
    pending_.insert(pending_.end(), samples.begin(), samples.end());
    std::vector<bool> frames;
    std::size_t offset = 0;
    for (; offset + kFrameSamples <= pending_.size(); offset += kFrameSamples) {
        const double decibels =
            frameDecibels(std::span<const float>(pending_).subspan(offset, kFrameSamples));
        const bool speech = decibels >= noiseFloorDecibels_ + kMarginDecibels &&
                            decibels >= kAbsoluteThresholdDecibels;
        if (decibels < noiseFloorDecibels_) {
            noiseFloorDecibels_ = decibels;  // quieter than we thought: follow at once
        } else if (!speech) {
            noiseFloorDecibels_ += 0.05 * (decibels - noiseFloorDecibels_);
        }
        frames.push_back(speech);
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(offset));
    return frames;
}

}  // namespace kelvo::platform
