#include "core/engines/DictionaryCorrectionEngine.h"

#include <algorithm>
#include <utility>

#include "core/support/Unicode.h"

namespace kelvo {

/// Everything `apply` needs, computed once per load so that a call does no filtering, sorting or
/// normalising of the dictionary.
struct DictionaryCorrectionEngine::Snapshot {
    struct PreparedEntry {
        /// Canonical text, readings, misrecognitions in that order; NFC; empty ones dropped.
        std::vector<std::string> candidates;
        /// NFC; the canonical text when the entry's replacement is empty.
        std::string replacement;
    };

    std::shared_ptr<const std::vector<DictionaryEntry>> entries;
    std::vector<PreparedEntry> prepared;
};

namespace {

DictionaryCorrectionEngine::Result unchanged(std::string_view text) {
    return {std::string(text), {}};
}

}  // namespace

DictionaryCorrectionEngine::DictionaryCorrectionEngine(std::shared_ptr<DictionaryStore> store)
    : store_(std::move(store)), snapshot_(load()) {}

DictionaryCorrectionEngine::~DictionaryCorrectionEngine() = default;

std::shared_ptr<const DictionaryCorrectionEngine::Snapshot> DictionaryCorrectionEngine::load()
    const {
    std::vector<DictionaryEntry> stored = store_->loadEntries();

    std::vector<DictionaryEntry> enabled;
    enabled.reserve(stored.size());
    for (auto& entry : stored) {
        if (entry.enabled) {
            enabled.push_back(std::move(entry));
        }
    }
    // Only priority orders the entries; equal priorities keep the order the user stored them in.
    std::stable_sort(enabled.begin(), enabled.end(),
                     [](const DictionaryEntry& left, const DictionaryEntry& right) {
                         return left.priority > right.priority;
                     });

    auto snapshot = std::make_shared<Snapshot>();
    snapshot->prepared.reserve(enabled.size());
    for (const auto& entry : enabled) {
        Snapshot::PreparedEntry prepared;
        auto addCandidate = [&prepared](const std::string& candidate) {
            if (!candidate.empty()) {
                prepared.candidates.push_back(unicode::toNfc(candidate));
            }
        };
        addCandidate(entry.canonicalText);
        for (const auto& reading : entry.readings) {
            addCandidate(reading);
        }
        for (const auto& misrecognition : entry.commonMisrecognitions) {
            addCandidate(misrecognition);
        }
        prepared.replacement = unicode::toNfc(
            entry.replacementText.empty() ? entry.canonicalText : entry.replacementText);
        snapshot->prepared.push_back(std::move(prepared));
    }
    snapshot->entries = std::make_shared<const std::vector<DictionaryEntry>>(std::move(enabled));
    return snapshot;
}

void DictionaryCorrectionEngine::reload() {
    const std::lock_guard reloading(reloadMutex_);
    std::shared_ptr<const Snapshot> fresh = load();
    const std::lock_guard swapping(snapshotMutex_);
    snapshot_ = std::move(fresh);
}

std::shared_ptr<const DictionaryCorrectionEngine::Snapshot> DictionaryCorrectionEngine::snapshot()
    const {
    const std::lock_guard lock(snapshotMutex_);
    return snapshot_;
}

std::shared_ptr<const std::vector<DictionaryEntry>> DictionaryCorrectionEngine::cachedEntries()
    const {
    return snapshot()->entries;
}

DictionaryCorrectionEngine::Result DictionaryCorrectionEngine::apply(std::string_view text,
                                                                     DictionaryScope scope) const {
    if (scope == DictionaryScope::disabled) {
        return unchanged(text);
    }
    const std::shared_ptr<const Snapshot> current = snapshot();
    if (current->prepared.empty()) {
        return unchanged(text);
    }

    Result result;
    result.text = unicode::toNfc(text);
    bool rewritten = false;
    const auto& entries = *current->entries;
    for (std::size_t index = 0; index < current->prepared.size(); ++index) {
        const auto& prepared = current->prepared[index];
        bool matched = false;
        // Each candidate sees the text as already changed by the candidates before it.
        for (const auto& candidate : prepared.candidates) {
            if (unicode::replaceAll(result.text, candidate, prepared.replacement) > 0) {
                matched = true;
                rewritten = rewritten || candidate != prepared.replacement;
            }
        }
        if (matched) {
            result.usedEntryIDs.push_back(entries[index].id);
        }
    }
    // A text whose matches only confirmed what was there comes back byte for byte as given,
    // rather than in its NFC form.
    if (!rewritten) {
        result.text.assign(text);
    }
    return result;
}

std::vector<std::string> DictionaryCorrectionEngine::hints(DictionaryScope scope) const {
    if (scope == DictionaryScope::disabled) {
        return {};
    }
    const auto entries = cachedEntries();
    std::vector<std::string> terms;
    terms.reserve(entries->size());
    for (const auto& entry : *entries) {
        terms.push_back(entry.canonicalText);
    }
    return terms;
}

}  // namespace kelvo
