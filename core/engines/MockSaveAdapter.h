#pragma once

#include <mutex>
#include <vector>

#include "core/models/SaveDestinationAdapter.h"

namespace kelvo {

/// A save destination that writes nothing: it remembers every document it is given, in call
/// order, and always reports success. Shared between threads; saves and reads of the list are
/// serialised internally.
class MockSaveAdapter : public SaveDestinationAdapter {
  public:
    MockSaveAdapter() = default;

    SaveDestinationType destinationType() const override { return destinationType_; }

    /// Keeps a copy of `document`; `request` is ignored.
    SaveResult save(const MarkdownDocument& document, const SaveRequest& request) noexcept override;

    /// A copy of the documents saved so far, oldest first.
    std::vector<MarkdownDocument> savedDocuments() const;

  private:
    const SaveDestinationType destinationType_ = SaveDestinationType::localFolder;
    mutable std::mutex mutex_;
    std::vector<MarkdownDocument> savedDocuments_;
};

}  // namespace kelvo
