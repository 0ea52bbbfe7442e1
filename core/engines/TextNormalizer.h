#pragma once

#include <string>
#include <string_view>

namespace kelvo {

/// A small clean-up of recognised text: full-width ASCII forms and the ideographic space become
/// their ASCII counterparts, and spacing is tidied. Stateless; safe on any thread.
class TextNormalizer {
  public:
    /// Folds U+FF01...U+FF5E to U+0021...U+007E and U+3000 to U+0020 (half-width katakana and
    /// everything else untouched), trims spaces and tabs at both ends, then collapses space runs.
    static std::string normalize(std::string_view text);
};

}  // namespace kelvo
