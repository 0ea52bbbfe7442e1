#pragma once

// A field edit watcher whose field is scripted: watch() yields `baseline` (nothing when unset) and
// keeps the handlers, through which a test plays the user's edits; stop() forgets them.

#include <optional>
#include <string>

#include "platform/FieldEditWatcher.h"

namespace kelvo::test {

class FakeFieldEditWatcher final : public platform::FieldEditWatcher {
  public:
    QCoro::Task<std::optional<Baseline>> watch(std::string dictated, std::size_t,
                                               Handlers handlers) override {
        watched = dictated;
        if (baseline) {
            this->handlers = std::move(handlers);
        }
        co_return baseline;
    }
    void stop() override { handlers = {}; }

    std::optional<Baseline> baseline;
    std::string watched;
    Handlers handlers;
};

}  // namespace kelvo::test
