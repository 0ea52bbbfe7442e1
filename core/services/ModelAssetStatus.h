#pragma once

#include <string_view>

namespace kelvo {

/// Where a model stands on this machine. `installed`: its file is in place and was verified when
/// it was installed. `downloading`: an installation is running (in this or another process) or a
/// partial file waits to be resumed. `supported`: known and installable, not present.
/// `unsupported`: no model serves the language asked about.
enum class ModelAssetStatus { unsupported, supported, downloading, installed };

constexpr std::string_view modelAssetStatusName(ModelAssetStatus status) {
    switch (status) {
        case ModelAssetStatus::unsupported:
            return "unsupported";
        case ModelAssetStatus::supported:
            return "supported";
        case ModelAssetStatus::downloading:
            return "downloading";
        case ModelAssetStatus::installed:
            return "installed";
    }
    return "unsupported";
}

}  // namespace kelvo
