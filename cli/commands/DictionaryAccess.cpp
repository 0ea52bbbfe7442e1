#include "cli/commands/DictionaryAccess.h"

namespace kelvo::cli {

std::shared_ptr<JSONDictionaryStore> openDictionaryStore(const std::filesystem::path& file) {
    return std::make_shared<JSONDictionaryStore>(file);
}

std::shared_ptr<DictionaryCorrectionEngine> openCorrectionEngine(
    const std::filesystem::path& file) {
    return std::make_shared<DictionaryCorrectionEngine>(openDictionaryStore(file));
}

}  // namespace kelvo::cli
