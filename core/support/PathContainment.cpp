#include "core/support/PathContainment.h"

#include <algorithm>

namespace kelvo {

bool hasParentComponent(const std::filesystem::path& relative) {
    return std::any_of(relative.begin(), relative.end(),
                       [](const std::filesystem::path& component) { return component == ".."; });
}

bool isWithin(const std::filesystem::path& outer, const std::filesystem::path& inner) {
    auto innerComponent = inner.begin();
    for (const std::filesystem::path& outerComponent : outer) {
        if (outerComponent.empty()) {
            continue;
        }
        if (innerComponent == inner.end() || *innerComponent != outerComponent) {
            return false;
        }
        ++innerComponent;
    }
    return true;
}

}  // namespace kelvo
