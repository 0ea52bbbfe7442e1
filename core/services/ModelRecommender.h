#pragma once

#include <optional>
#include <string>

#include "core/services/CpuCapabilities.h"
#include "core/services/ModelCatalog.h"

namespace kelvo {

/// Picks the speech model to suggest on this machine: the most accurate catalogue model for a
/// language that keeps up with speech on its processor, with the reason in one line
/// ("4 cores with AVX2: base keeps up with speech").
///
/// The rule. A model keeps up when its estimated real-time factor (seconds of decoding per second
/// of speech, for the final pass over a 10 s utterance) is at most `keepsUpRealTimeFactor`; the
/// headroom is for the partial results decoded while the user speaks. The estimate scales the
/// factor measured on the reference machine (2 cores with AVX2, two decoding threads: tiny 0.15,
/// base 0.6, small 1.65; medium and the large encoders follow from their sizes) by
/// 2 / effective cores, where effective cores are the physical cores (at most 8: whisper.cpp
/// gains little from more threads), times 0.4 without AVX2 (ggml falls back to 128-bit vectors)
/// and times 0.7 without F16C (half floats converted in software). AVX-512 earns nothing extra:
/// the reference machine has it too, so the measured figures include it. A model's cost comes
/// from its family (its name without a quantisation suffix: "base-q5_1" costs what "base" does,
/// because quantised weights are expanded for the same arithmetic); a family this rule does not
/// know is estimated from its file size against base. When no model keeps up, the fastest one is
/// suggested, and the reason says that it may lag. Pure; callable from any thread.
class ModelRecommender {
  public:
    struct Recommendation {
        const ModelCatalogEntry* entry = nullptr;
        std::string reason;
    };

    static constexpr double keepsUpRealTimeFactor = 0.7;

    /// No value when no catalogue model serves `language` (a whisper code: "ja").
    static std::optional<Recommendation> recommend(const ModelCatalog& catalog,
                                                   const std::string& language,
                                                   const CpuCapabilities& cpu);

    static double estimatedRealTimeFactor(const ModelCatalogEntry& entry,
                                          const CpuCapabilities& cpu);
};

}  // namespace kelvo
