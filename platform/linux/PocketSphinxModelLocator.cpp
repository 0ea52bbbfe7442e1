#include "platform/linux/PocketSphinxModelLocator.h"

#include <algorithm>
#include <cstdlib>
#include <system_error>

namespace kelvo::platform {
namespace {

namespace fs = std::filesystem;

char lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// "en_US" / "EN-us" -> "en-us": the form folder names and locales are compared in.
std::string comparable(std::string_view name) {
    std::string text;
    for (const char c : name) {
        text += c == '_' ? '-' : lower(c);
    }
    return text;
}

std::string languageOf(const std::string& comparableLocale) {
    return comparableLocale.substr(0, comparableLocale.find('-'));
}

// "en-us" -> "en-US": language lower case, a two-letter region upper case.
std::string displayLocale(std::string_view folderName) {
    std::string text = comparable(folderName);
    const std::size_t dash = text.find('-');
    if (dash != std::string::npos && text.size() - dash - 1 == 2) {
        for (std::size_t i = dash + 1; i < text.size(); ++i) {
            text[i] = static_cast<char>(text[i] - 'a' + 'A');
        }
    }
    return text;
}

std::vector<fs::path> sortedEntries(const fs::path& folder) {
    std::vector<fs::path> entries;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        entries.push_back(it->path());
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

bool endsWith(const std::string& text, std::string_view suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

namespace {

// PocketSphinx ends the whole process on a model file it cannot parse, so the obvious damage (a
// missing or empty file) is caught here, before a load is attempted.
bool isNonEmptyFile(const fs::path& file) {
    std::error_code error;
    return fs::is_regular_file(file, error) && fs::file_size(file, error) > 0 && !error;
}

}  // namespace

bool PocketSphinxModel::isComplete() const {
    return isNonEmptyFile(acousticModel / "mdef") && isNonEmptyFile(dictionary) &&
           isNonEmptyFile(languageModel);
}

PocketSphinxModelLocator::PocketSphinxModelLocator(std::vector<fs::path> roots)
    : roots_(std::move(roots)) {}

PocketSphinxModelLocator PocketSphinxModelLocator::standard(const fs::path& userModelsFolder) {
    return PocketSphinxModelLocator({userModelsFolder, fs::path(systemModelsFolder)});
}

std::optional<PocketSphinxModel> PocketSphinxModelLocator::modelIn(const fs::path& folder,
                                                                   std::string locale) {
    PocketSphinxModel model;
    model.locale = std::move(locale);
    model.folder = folder;
    std::error_code error;
    for (const fs::path& entry : sortedEntries(folder)) {
        const std::string name = entry.filename().string();
        if (model.acousticModel.empty() && fs::is_directory(entry, error) &&
            fs::is_regular_file(entry / "mdef", error)) {
            model.acousticModel = entry;
        } else if (model.dictionary.empty() && endsWith(name, ".dict") &&
                   fs::is_regular_file(entry, error)) {
            model.dictionary = entry;
        } else if (model.languageModel.empty() && endsWith(name, ".lm.bin") &&
                   !endsWith(name, "-phone.lm.bin") && fs::is_regular_file(entry, error)) {
            model.languageModel = entry;
        }
    }
    if (model.acousticModel.empty() || model.dictionary.empty() || model.languageModel.empty() ||
        !model.isComplete()) {
        return std::nullopt;
    }
    return model;
}

std::optional<PocketSphinxModel> PocketSphinxModelLocator::find(std::string_view locale) const {
    const std::string wanted = comparable(locale);
    if (wanted.empty()) {
        return std::nullopt;
    }
    const std::string language = languageOf(wanted);
    // An exact folder anywhere wins over a language-only folder anywhere.
    for (const bool exact : {true, false}) {
        for (const fs::path& root : roots_) {
            for (const fs::path& entry : sortedEntries(root)) {
                const std::string name = comparable(entry.filename().string());
                if (exact ? name != wanted : name != language) {
                    continue;
                }
                if (auto model = modelIn(entry, std::string(locale))) {
                    return model;
                }
            }
        }
    }
    return std::nullopt;
}

std::vector<PocketSphinxModel> PocketSphinxModelLocator::installed() const {
    std::vector<PocketSphinxModel> models;
    for (const fs::path& root : roots_) {
        for (const fs::path& entry : sortedEntries(root)) {
            std::string locale = displayLocale(entry.filename().string());
            const bool known = std::any_of(models.begin(), models.end(), [&](const auto& model) {
                return comparable(model.locale) == comparable(locale);
            });
            if (known) {
                continue;
            }
            if (auto model = modelIn(entry, std::move(locale))) {
                models.push_back(std::move(*model));
            }
        }
    }
    return models;
}

std::optional<std::string> PocketSphinxModelLocator::localeFromPosix(std::string_view posixLocale) {
    // language[_territory][.codeset][@modifier]
    const std::size_t end = posixLocale.find_first_of(".@");
    const std::string_view name = posixLocale.substr(0, end);
    if (name.empty() || name == "C" || name == "POSIX") {
        return std::nullopt;
    }
    return displayLocale(name);
}

std::optional<std::string> PocketSphinxModelLocator::systemLocale() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return localeFromPosix(value);
        }
    }
    return std::nullopt;
}

}  // namespace kelvo::platform
