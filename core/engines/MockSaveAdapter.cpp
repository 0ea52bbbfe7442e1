#include "core/engines/MockSaveAdapter.h"

namespace kelvo {

SaveResult MockSaveAdapter::save(const MarkdownDocument& document, const SaveRequest&) noexcept {
    {
        const std::lock_guard lock(mutex_);
        savedDocuments_.push_back(document);
    }
    SaveResult result;
    result.success = true;
    result.destinationType = SaveDestinationType::localFolder;
    return result;
}

std::vector<MarkdownDocument> MockSaveAdapter::savedDocuments() const {
    const std::lock_guard lock(mutex_);
    return savedDocuments_;
}

}  // namespace kelvo
