#include "platform/whisper/BuiltInModelEngine.h"

#include <utility>

#include "platform/linux/UnavailableModelEngine.h"
#if KELVO_HAS_WHISPER
#include "platform/whisper/WhisperModelEngine.h"
#endif

namespace kelvo::platform {

BuiltInModelEngine::BuiltInModelEngine([[maybe_unused]] ModelInventory& inventory,
                                       [[maybe_unused]] Clock& clock,
                                       [[maybe_unused]] int idleReleaseMinutes,
                                       [[maybe_unused]] Log log) {
#if KELVO_HAS_WHISPER
    auto whisper = std::make_unique<WhisperModelEngine>(
        inventory, clock, [log = std::move(log)](const std::string& line) {
            if (log) {
                // The engine's lines are sentences in lower case ("model X loaded ...").
                std::string sentence = line;
                if (!sentence.empty() && sentence[0] >= 'a' && sentence[0] <= 'z') {
                    sentence[0] = static_cast<char>(sentence[0] - 'a' + 'A');
                }
                log("[KelvoVoice] " + sentence);
            }
        });
    whisper->setIdleReleaseMinutes(idleReleaseMinutes);
    whisper_ = whisper.get();
    engine_ = std::move(whisper);
#else
    engine_ = std::make_unique<UnavailableModelEngine>();
#endif
}

BuiltInModelEngine::~BuiltInModelEngine() = default;

bool BuiltInModelEngine::isBuilt() {
#if KELVO_HAS_WHISPER
    return true;
#else
    return false;
#endif
}

const char* BuiltInModelEngine::name() {
    return isBuilt() ? "WhisperModelEngine" : "none (built without whisper.cpp)";
}

void BuiltInModelEngine::loadInBackground([[maybe_unused]] const std::string& locale) {
#if KELVO_HAS_WHISPER
    whisper_->loadInBackground(locale);
#endif
}

void BuiltInModelEngine::setIdleReleaseMinutes([[maybe_unused]] int minutes) {
#if KELVO_HAS_WHISPER
    whisper_->setIdleReleaseMinutes(minutes);
#endif
}

}  // namespace kelvo::platform
