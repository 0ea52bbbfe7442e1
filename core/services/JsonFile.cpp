#include "core/services/JsonFile.h"

namespace kelvo::jsonfile {

Json parse(const std::filesystem::path& path, std::string_view data) {
    try {
        return Json::parse(data);
    } catch (const Json::parse_error& error) {
        // nlohmann prefixes "[json.exception.parse_error.101] "; the rest says where and why.
        std::string detail = error.what();
        if (const auto end = detail.find("] ");
            detail.starts_with("[json.exception.") && end != std::string::npos) {
            detail.erase(0, end + 2);
        }
        throw DecodingError(path.string() + ": invalid JSON: " + detail);
    }
}

std::string prettyPrinted(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace);
}

bool exists(const std::filesystem::path& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error && status.type() != std::filesystem::file_type::not_found) {
        return true;
    }
    return std::filesystem::exists(status);
}

}  // namespace kelvo::jsonfile
