#include "core/engines/DictionaryCorrectionEngine.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "core/support/Unicode.h"

namespace kelvo {

namespace {

constexpr char32_t kReplacementCharacter = U'\uFFFD';
constexpr std::string_view kEncodedReplacementCharacter = "\xEF\xBF\xBD";

std::uint16_t singleKey(char32_t codePoint) {
    return static_cast<std::uint16_t>((static_cast<std::uint32_t>(codePoint) * 0x9E3779B1u) >> 16);
}

std::uint16_t pairKey(char32_t first, char32_t second) {
    const std::uint32_t mixed = static_cast<std::uint32_t>(first) * 0x9E3779B1u ^
                                static_cast<std::uint32_t>(second) * 0x85EBCA77u;
    return static_cast<std::uint16_t>((mixed ^ (mixed >> 15)) * 0x2C1B3C6Du >> 16);
}

/// A fixed set of 16-bit keys; false positives are harmless, false negatives impossible.
class KeySet {
  public:
    void clear() { bits_.fill(0); }
    void insert(std::uint16_t key) { bits_[key >> 6] |= std::uint64_t{1} << (key & 63); }
    bool contains(std::uint16_t key) const {
        return (bits_[key >> 6] >> (key & 63)) & std::uint64_t{1};
    }

  private:
    std::array<std::uint64_t, 65536 / 64> bits_{};
};

}  // namespace

/// Everything `apply` needs, computed once per load so that a call does no filtering, sorting or
/// normalising of the dictionary.
struct DictionaryCorrectionEngine::Snapshot {
    /// One text to look for, with the keys of its code points for the pre-filter: every pair of
    /// adjacent code points (or the single code point of a one-character candidate). If the
    /// candidate occurs in a text, all its keys occur among that text's keys, so a missing key
    /// proves absence without a search. Most of a large dictionary is ruled out that way.
    struct Candidate {
        std::string text;
        std::vector<std::uint16_t> keys;
        bool singleCodePoint = false;
        /// Malformed UTF-8 may decode differently inside a text than alone; always searched.
        bool filterable = true;
    };

    struct PreparedEntry {
        /// Canonical text, readings, misrecognitions in that order; NFC; empty ones dropped.
        std::vector<Candidate> candidates;
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

/// The keys of the text being corrected; rebuilt only after a replacement changed the text.
class TextKeys {
  public:
    void rebuild(std::string_view text) {
        singles_.clear();
        pairs_.clear();
        bool havePrevious = false;
        char32_t previous = 0;
        unicode::forEachCodePoint(text, [&](char32_t codePoint, std::size_t, std::size_t) {
            singles_.insert(singleKey(codePoint));
            if (havePrevious) {
                pairs_.insert(pairKey(previous, codePoint));
            }
            previous = codePoint;
            havePrevious = true;
        });
    }

    template <typename CandidateT>
    bool mayContain(const CandidateT& candidate) const {
        if (!candidate.filterable) {
            return true;
        }
        const KeySet& keys = candidate.singleCodePoint ? singles_ : pairs_;
        return std::all_of(candidate.keys.begin(), candidate.keys.end(),
                           [&keys](std::uint16_t key) { return keys.contains(key); });
    }

  private:
    KeySet singles_;
    KeySet pairs_;
};

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
        auto addCandidate = [&prepared](const std::string& text) {
            if (text.empty()) {
                return;
            }
            Snapshot::Candidate candidate;
            candidate.text = unicode::toNfc(text);
            std::vector<char32_t> codePoints;
            unicode::forEachCodePoint(
                candidate.text, [&](char32_t codePoint, std::size_t offset, std::size_t length) {
                    if (codePoint == kReplacementCharacter &&
                        candidate.text.compare(offset, length, kEncodedReplacementCharacter) != 0) {
                        candidate.filterable = false;
                    }
                    codePoints.push_back(codePoint);
                });
            candidate.singleCodePoint = codePoints.size() == 1;
            if (candidate.singleCodePoint) {
                candidate.keys.push_back(singleKey(codePoints[0]));
            }
            for (std::size_t i = 1; i < codePoints.size(); ++i) {
                candidate.keys.push_back(pairKey(codePoints[i - 1], codePoints[i]));
            }
            std::sort(candidate.keys.begin(), candidate.keys.end());
            candidate.keys.erase(std::unique(candidate.keys.begin(), candidate.keys.end()),
                                 candidate.keys.end());
            prepared.candidates.push_back(std::move(candidate));
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
    // Two 8 KiB bit sets: on the heap, as apply may run on threads with small stacks.
    auto textKeys = std::make_unique<TextKeys>();
    textKeys->rebuild(result.text);
    bool rewritten = false;
    const auto& entries = *current->entries;
    for (std::size_t index = 0; index < current->prepared.size(); ++index) {
        const auto& prepared = current->prepared[index];
        bool matched = false;
        // Each candidate sees the text as already changed by the candidates before it.
        for (const auto& candidate : prepared.candidates) {
            if (!textKeys->mayContain(candidate)) {
                continue;
            }
            if (unicode::replaceAll(result.text, candidate.text, prepared.replacement) > 0) {
                matched = true;
                if (candidate.text != prepared.replacement) {
                    rewritten = true;
                    textKeys->rebuild(result.text);
                }
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
