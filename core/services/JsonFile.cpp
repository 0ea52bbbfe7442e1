#include "core/services/JsonFile.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <utility>
#include <vector>

namespace kelvo::jsonfile {

namespace {

// Counts the brackets outside texts, before anything (the parser's result included) recurses.
void requireModestNesting(const std::filesystem::path& path, std::string_view data) {
    std::size_t depth = 0;
    bool inText = false;
    for (std::size_t i = 0; i < data.size(); ++i) {
        const char c = data[i];
        if (inText) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inText = false;
            }
            continue;
        }
        if (c == '"') {
            inText = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maximumNestingDepth) {
                throw DecodingError(path.string() + ": invalid JSON: nested deeper than " +
                                    std::to_string(maximumNestingDepth) + " levels");
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
}

}  // namespace

Json parse(const std::filesystem::path& path, std::string_view data) {
    requireModestNesting(path, data);
    try {
        return Json::parse(data);
    } catch (const Json::exception& error) {
        // A syntax error, or a number beyond a double (which nlohmann reports as out of range).
        // nlohmann prefixes "[json.exception.parse_error.101] "; the rest says where and why.
        std::string detail = error.what();
        if (const auto end = detail.find("] ");
            detail.starts_with("[json.exception.") && end != std::string::npos) {
            detail.erase(0, end + 2);
        }
        throw DecodingError(path.string() + ": invalid JSON: " + detail);
    }
}

namespace {

constexpr int kIndentSpaces = 2;

/// Strict UTF-8 (no overlong forms, surrogates or code points above U+10FFFF), as the JSON
/// serialiser checks it.
bool isValidUtf8(std::string_view text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t size = text.size();
    std::size_t i = 0;
    auto trail = [&](std::size_t at, unsigned char low = 0x80, unsigned char high = 0xBF) {
        return at < size && bytes[at] >= low && bytes[at] <= high;
    };
    while (i < size) {
        const unsigned char lead = bytes[i];
        if (lead < 0x80) {
            ++i;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            if (!trail(i + 1)) {
                return false;
            }
            i += 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            const unsigned char low = lead == 0xE0 ? 0xA0 : 0x80;
            const unsigned char high = lead == 0xED ? 0x9F : 0xBF;
            if (!trail(i + 1, low, high) || !trail(i + 2)) {
                return false;
            }
            i += 3;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            const unsigned char low = lead == 0xF0 ? 0x90 : 0x80;
            const unsigned char high = lead == 0xF4 ? 0x8F : 0xBF;
            if (!trail(i + 1, low, high) || !trail(i + 2) || !trail(i + 3)) {
                return false;
            }
            i += 4;
        } else {
            return false;
        }
    }
    return true;
}

bool needsEscaping(std::string_view text) {
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\') {
            return true;
        }
    }
    return false;
}

void appendString(std::string& out, const std::string& text) {
    // Dictation texts are long and almost never need escaping; copying them whole is several
    // times faster than the general serialiser, which dominates saving a full history.
    if (!needsEscaping(text) && isValidUtf8(text)) {
        out += '"';
        out += text;
        out += '"';
        return;
    }
    out += Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
}

void appendPretty(std::string& out, const Json& value, int indent) {
    switch (value.type()) {
        case Json::value_t::object: {
            if (value.empty()) {
                out += "{}";
                return;
            }
            out += "{\n";
            bool first = true;
            for (const auto& [key, member] : value.items()) {
                if (!first) {
                    out += ",\n";
                }
                first = false;
                out.append(static_cast<std::size_t>(indent + kIndentSpaces), ' ');
                appendString(out, key);
                out += ": ";
                appendPretty(out, member, indent + kIndentSpaces);
            }
            out += '\n';
            out.append(static_cast<std::size_t>(indent), ' ');
            out += '}';
            return;
        }
        case Json::value_t::array: {
            if (value.empty()) {
                out += "[]";
                return;
            }
            out += "[\n";
            bool first = true;
            for (const auto& element : value) {
                if (!first) {
                    out += ",\n";
                }
                first = false;
                out.append(static_cast<std::size_t>(indent + kIndentSpaces), ' ');
                appendPretty(out, element, indent + kIndentSpaces);
            }
            out += '\n';
            out.append(static_cast<std::size_t>(indent), ' ');
            out += ']';
            return;
        }
        case Json::value_t::string:
            appendString(out, value.get_ref<const std::string&>());
            return;
        default:
            out += value.dump(-1, ' ', false, Json::error_handler_t::replace);
            return;
    }
}

}  // namespace

std::string prettyPrinted(const Json& value) {
    std::string out;
    appendPretty(out, value, 0);
    return out;
}

void requireRegularFile(const std::filesystem::path& path, const std::filesystem::path& shownAs) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error || std::filesystem::is_regular_file(status)) {
        return;  // a missing or unreadable file is reported by whoever reads it
    }
    throw FileError("\"" + shownAs.string() + "\" " +
                    (std::filesystem::is_directory(status)
                         ? "is a folder, not a data file"
                         : "is not a regular file (a FIFO or a device); refusing to use it"));
}

std::filesystem::path folderOf(const std::filesystem::path& file) {
    return file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
}

bool exists(const std::filesystem::path& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error && status.type() != std::filesystem::file_type::not_found) {
        return true;
    }
    return std::filesystem::exists(status);
}

namespace {

// Oldest first: by the time in the name, then by the number after it (none counts as 1).
void removeOldDamagedCopies(const std::filesystem::path& path) {
    const std::string prefix = path.filename().string() + ".damaged-";
    std::vector<std::pair<std::pair<std::string, unsigned long>, std::filesystem::path>> copies;
    std::error_code error;
    for (std::filesystem::directory_iterator it(folderOf(path), error), end; !error && it != end;
         it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (!name.starts_with(prefix)) {
            continue;
        }
        std::string stamp = name.substr(prefix.size());
        unsigned long number = 1;
        if (const auto dash = stamp.find('-'); dash != std::string::npos) {
            number = std::strtoul(stamp.c_str() + dash + 1, nullptr, 10);
            stamp.resize(dash);
        }
        copies.push_back({{stamp, number}, it->path()});
    }
    std::sort(copies.begin(), copies.end());
    for (std::size_t i = 0; i + keptDamagedCopies < copies.size(); ++i) {
        std::filesystem::remove(copies[i].second, error);
    }
}

}  // namespace

std::filesystem::path moveDamagedAside(const std::filesystem::path& path,
                                       const std::filesystem::path& shownAs,
                                       std::string_view kind) {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
    const std::string base = path.filename().string() + ".damaged-" + stamp;
    std::filesystem::path movedTo = path.parent_path() / base;
    for (int n = 2; jsonfile::exists(movedTo); ++n) {
        movedTo = path.parent_path() / (base + "-" + std::to_string(n));
    }
    std::error_code renameError;
    std::filesystem::rename(path, movedTo, renameError);
    if (renameError) {
        throw FileError("Could not move the damaged " + std::string(kind) + " \"" +
                        shownAs.string() + "\" aside: " + renameError.message());
    }
    removeOldDamagedCopies(path);
    return movedTo;
}

}  // namespace kelvo::jsonfile
