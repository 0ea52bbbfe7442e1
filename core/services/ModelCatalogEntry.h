#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelvo {

/// One speech model the inventory knows how to obtain: a whisper.cpp ggml file with where it is
/// published and what the published file looks like. `sha1`/`sha256` are lower-case hexadecimal
/// digests as the model's publisher lists them, empty when no published value is known; without
/// one, an installation can only check the size, and says so. `sizeBytes` is exact only when
/// `sizeIsExact`; otherwise it is the publisher's rounded figure, good for showing and for the
/// free-space check, and the download is checked against the length the server announces.
/// `languages` empty means every language whisper knows (a multilingual model). `rank` orders
/// models by expected accuracy: the best installed model for a language is the one ranked highest.
/// A plain value; copy freely.
struct ModelCatalogEntry {
    std::string name;
    std::string fileName;
    std::string url;
    std::uint64_t sizeBytes = 0;
    bool sizeIsExact = false;
    std::string sha1;
    std::string sha256;
    std::vector<std::string> languages;
    int rank = 0;
    std::string description;

    bool hasPublishedChecksum() const { return !sha1.empty() || !sha256.empty(); }
};

}  // namespace kelvo
