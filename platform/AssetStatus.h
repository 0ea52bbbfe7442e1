#pragma once

// AssetStatus is the installation state of the model files a transcriber needs, as the asset
// inventory of a ModelEngine reports it (for whisper.cpp: the model file for the locale under
// $XDG_DATA_HOME/KelvoVoiceMac/models). `unknown` stands for any state a backend adds later.
// assetStatusName() gives the name printed in trace lines and error texts.

#include <string_view>

namespace kelvo::platform {

enum class AssetStatus { unsupported, supported, downloading, installed, unknown };

constexpr std::string_view assetStatusName(AssetStatus status) {
    switch (status) {
        case AssetStatus::unsupported:
            return "unsupported";
        case AssetStatus::supported:
            return "supported";
        case AssetStatus::downloading:
            return "downloading";
        case AssetStatus::installed:
            return "installed";
        case AssetStatus::unknown:
            break;
    }
    return "unknown";
}

}  // namespace kelvo::platform
