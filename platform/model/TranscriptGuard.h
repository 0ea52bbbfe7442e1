#pragma once

// TranscriptGuard drops what whisper is known to invent when nobody speaks: its stock
// hallucinations, learnt from subtitled video ("ご視聴ありがとうございました", "チャンネル登録
// お願いします", "Thanks for watching!" and their kin), text that is only punctuation or music
// marks, and echoes of the initial prompt (the hint terms read back). Text is judged only when
// the audio's energy says nobody spoke; real speech is never filtered, so a user who does say
// "ありがとうございました" keeps it. Stateless; safe from any thread.

#include <string>

namespace kelvo::platform {

class TranscriptGuard {
  public:
    // True when `text`, decoded from audio in which `speechHeard` is false, should be thrown
    // away. `prompt` is the initial prompt the decoder was given.
    static bool shouldDrop(const std::string& text, const std::string& prompt, bool speechHeard);

    // The text reduced to its letters, marks and digits, NFC and lower-cased: the form in which
    // hallucinations and echoes are compared.
    static std::string comparableForm(const std::string& text);
};

}  // namespace kelvo::platform
