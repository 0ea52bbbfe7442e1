#include "core/services/ModelRecommender.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

namespace kelvo {
namespace {

constexpr double kReferenceCores = 2.0;
constexpr int kMostUsefulCores = 8;
constexpr double kWithoutAVX2 = 0.4;
constexpr double kWithoutF16C = 0.7;
constexpr double kBaseFactor = 0.6;
constexpr double kBaseSizeBytes = 142.0 * 1024 * 1024;

// Final-pass real-time factors on the reference machine. tiny, base and small are measured
// (README, "On-device recognition with whisper.cpp"); the others are scaled from small by the
// work of their encoder, which dominates a 30 s window: medium has three times small's weights,
// the large encoders (large-v3-turbo and kotoba-whisper share large-v3's) about twice medium's,
// and the full large decoders add as much again.
struct Family {
    std::string_view name;
    double referenceFactor;
};
constexpr Family kFamilies[] = {
    {"tiny", 0.15},          {"base", 0.6},           {"small", 1.65}, {"medium", 5.0},
    {"large-v3-turbo", 7.0}, {"kotoba-whisper", 7.0}, {"large", 12.0},
};

// "base-q5_1" -> "base"; "kotoba-whisper-v2.0" and "large-v3-turbo" match by prefix below.
std::string_view familyName(std::string_view name) {
    const std::size_t quantised = name.rfind("-q");
    if (quantised != std::string_view::npos && quantised + 2 < name.size() &&
        std::isdigit(static_cast<unsigned char>(name[quantised + 2]))) {
        name = name.substr(0, quantised);
    }
    return name;
}

std::optional<double> referenceFactor(std::string_view name) {
    const std::string_view family = familyName(name);
    for (const Family& known : kFamilies) {
        // Exact, or a versioned member: "large-v2", "kotoba-whisper-v1.0"; "base.en" is base.
        if (family == known.name ||
            (family.substr(0, known.name.size()) == known.name &&
             (family[known.name.size()] == '-' || family[known.name.size()] == '.'))) {
            return known.referenceFactor;
        }
    }
    return std::nullopt;
}

}  // namespace

double ModelRecommender::estimatedRealTimeFactor(const ModelCatalogEntry& entry,
                                                 const CpuCapabilities& cpu) {
    const double reference =
        referenceFactor(entry.name)
            .value_or(kBaseFactor * static_cast<double>(entry.sizeBytes) / kBaseSizeBytes);
    double effectiveCores = std::min(std::max(cpu.cores, 1), kMostUsefulCores);
    if (!cpu.avx2) {
        effectiveCores *= kWithoutAVX2;
    }
    if (!cpu.f16c) {
        effectiveCores *= kWithoutF16C;
    }
    return reference * kReferenceCores / effectiveCores;
}

std::optional<ModelRecommender::Recommendation> ModelRecommender::recommend(
    const ModelCatalog& catalog, const std::string& language, const CpuCapabilities& cpu) {
    // Best first: the first that keeps up is the most accurate that does.
    const std::vector<const ModelCatalogEntry*> candidates = catalog.modelsForLanguage(language);
    if (candidates.empty()) {
        return std::nullopt;
    }
    for (const ModelCatalogEntry* entry : candidates) {
        if (estimatedRealTimeFactor(*entry, cpu) <= keepsUpRealTimeFactor) {
            return Recommendation{entry,
                                  cpu.description() + ": " + entry->name + " keeps up with speech"};
        }
    }
    // stable: among equally fast models the better-ranked (earlier) one wins.
    const ModelCatalogEntry* fastest = *std::min_element(
        candidates.begin(), candidates.end(), [&cpu](const auto* a, const auto* b) {
            return estimatedRealTimeFactor(*a, cpu) < estimatedRealTimeFactor(*b, cpu);
        });
    return Recommendation{fastest, cpu.description() + ": even " + fastest->name +
                                       ", the fastest model, may lag behind speech"};
}

}  // namespace kelvo
