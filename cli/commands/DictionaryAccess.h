#pragma once

#include <filesystem>
#include <memory>

#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/services/JSONDictionaryStore.h"

namespace kelvo::cli {

/// The dictionary store over `file`. Reading never creates or changes the file; a missing file
/// reads as an empty dictionary.
std::shared_ptr<JSONDictionaryStore> openDictionaryStore(const std::filesystem::path& file);

/// A correction engine loaded from `file`; throws the store's error when the file cannot be read
/// or decoded.
std::shared_ptr<DictionaryCorrectionEngine> openCorrectionEngine(const std::filesystem::path& file);

}  // namespace kelvo::cli
