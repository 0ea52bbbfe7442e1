#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// Deletes Japanese hesitation words ("えーと", "あのー", "まあ、" ...) from a final transcript and
/// tidies the punctuation and spacing the deletion leaves behind. A value type: the filler list is
/// fixed at construction and `removeFillers` is a pure function, safe on any thread.
class FillerRemovalEngine {
  public:
    /// `fillers` are tried in order; an empty item is ignored.
    explicit FillerRemovalEngine(std::vector<std::string> fillers = defaultFillers());

    std::string removeFillers(std::string_view text) const;

    const std::vector<std::string>& fillers() const { return fillers_; }

    /// The 22 fillers the application uses, in the order they are tried. Longer forms come
    /// before their prefixes ("えーっと" and "えっとー" before "えっと") so the longer one goes
    /// whole.
    static const std::vector<std::string>& defaultFillers();

  private:
    std::vector<std::string> fillers_;
};

}  // namespace kelvo
