#include "platform/model/TranscriptGuard.h"

#include <array>
#include <string_view>

#include "core/support/Unicode.h"

namespace kelvo::platform {
namespace {

// Compared in comparableForm (no punctuation or spaces), so "ご視聴ありがとうございました。"
// and "ご視聴 ありがとうございました!" match the first line.
constexpr std::array<std::string_view, 22> kStockHallucinations = {
    "ご視聴ありがとうございました",
    "最後までご視聴いただきありがとうございました",
    "最後までご視聴頂きありがとうございました",
    "ご清聴ありがとうございました",
    "ありがとうございました",
    "チャンネル登録お願いします",
    "チャンネル登録よろしくお願いします",
    "チャンネル登録をお願いします",
    "次回もお楽しみに",
    "おやすみなさい",
    "お疲れ様でした",
    "字幕",
    "音楽",
    "拍手",
    "thankyou",
    "thanks",
    "thankyouforwatching",
    "thanksforwatching",
    "pleasesubscribe",
    "you",
    "bye",
    "subtitlesbytheamaraorgcommunity",
};

bool isStockHallucination(const std::string& comparable) {
    for (const std::string_view phrase : kStockHallucinations) {
        if (comparable == phrase) {
            return true;
        }
        // The same phrase said over and over ("ありがとうございましたありがとうございました").
        if (comparable.size() > phrase.size() && comparable.size() % phrase.size() == 0) {
            bool repeated = true;
            for (std::size_t at = 0; repeated && at < comparable.size(); at += phrase.size()) {
                repeated = std::string_view(comparable).substr(at, phrase.size()) == phrase;
            }
            if (repeated) {
                return true;
            }
        }
    }
    // Subtitle credits come in many spellings: "字幕作成者…", "字幕:…".
    return comparable.starts_with("字幕") || comparable.find("amaraorg") != std::string::npos;
}

}  // namespace

std::string TranscriptGuard::comparableForm(const std::string& text) {
    std::string kept;
    unicode::forEachCodePoint(unicode::toNfc(text),
                              [&kept](char32_t codePoint, std::size_t, std::size_t) {
                                  if (unicode::isLetterMarkOrDigit(codePoint)) {
                                      kept += unicode::encode(codePoint);
                                  }
                              });
    return unicode::toLower(kept);
}

bool TranscriptGuard::shouldDrop(const std::string& text, const std::string& prompt,
                                 bool speechHeard) {
    if (speechHeard) {
        return false;
    }
    const std::string comparable = comparableForm(text);
    if (comparable.empty() || isStockHallucination(comparable)) {
        return true;
    }
    // An echo: the decoder read (part of) its prompt back.
    return !prompt.empty() && comparableForm(prompt).find(comparable) != std::string::npos;
}

}  // namespace kelvo::platform
