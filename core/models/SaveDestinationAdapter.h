#pragma once

#include "core/models/MarkdownDocument.h"
#include "core/models/SaveDestinationType.h"
#include "core/models/SaveRequest.h"
#include "core/models/SaveResult.h"

namespace kelvo {

/// A place notes are saved to. A save never throws: failures come back in `SaveResult`.
class SaveDestinationAdapter {
public:
    virtual ~SaveDestinationAdapter() = default;
    virtual SaveDestinationType destinationType() const = 0;
    virtual SaveResult save(const MarkdownDocument& document, const SaveRequest& request) noexcept = 0;
};

}  // namespace kelvo
