#pragma once

// PocketSphinxModel names the three files of one locale's PocketSphinx model: the acoustic model
// folder (the one holding "mdef"), the pronunciation dictionary (".dict") and the n-gram language
// model (".lm.bin"). locale is its BCP 47 identifier ("en-US"). A plain value.

#include <filesystem>
#include <string>

namespace kelvo::platform {

struct PocketSphinxModel {
    std::string locale;
    std::filesystem::path folder;
    std::filesystem::path acousticModel;
    std::filesystem::path dictionary;
    std::filesystem::path languageModel;

    // False once a file has gone since the model was found.
    bool isComplete() const;
};

}  // namespace kelvo::platform
