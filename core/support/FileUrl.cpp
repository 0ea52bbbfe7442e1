#include "core/support/FileUrl.h"

#include <cctype>

#include "core/support/Error.h"

namespace kelvo {

namespace {

bool keptAsIs(unsigned char c) {
    // RFC 3986 unreserved characters plus the sub-delimiters and ":@/" that a path segment allows.
    if (std::isalnum(c)) {
        return true;
    }
    switch (c) {
        case '-': case '.': case '_': case '~': case '!': case '$': case '&': case '\'':
        case '(': case ')': case '*': case '+': case ',': case ';': case '=': case ':':
        case '@': case '/':
            return true;
        default:
            return false;
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string fileUrlString(const std::filesystem::path& path) {
    const std::string absolute = std::filesystem::absolute(path).lexically_normal().string();
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string url = "file://";
    url.reserve(url.size() + absolute.size());
    for (const char ch : absolute) {
        const auto c = static_cast<unsigned char>(ch);
        if (keptAsIs(c)) {
            url.push_back(ch);
        } else {
            url.push_back('%');
            url.push_back(kHex[c >> 4]);
            url.push_back(kHex[c & 0x0F]);
        }
    }
    return url;
}

std::filesystem::path pathFromFileUrl(std::string_view url) {
    constexpr std::string_view kScheme = "file://";
    if (url.substr(0, kScheme.size()) != kScheme) {
        throw DecodingError("\"" + std::string(url) + "\" is not a file URL");
    }
    std::string_view rest = url.substr(kScheme.size());
    if (rest.substr(0, 9) == "localhost") {
        rest.remove_prefix(9);
    }
    if (rest.empty() || rest.front() != '/') {
        throw DecodingError("\"" + std::string(url) + "\" is not a local file URL");
    }
    std::string path;
    path.reserve(rest.size());
    for (std::size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] != '%') {
            path.push_back(rest[i]);
            continue;
        }
        const int high = i + 2 < rest.size() ? hexValue(rest[i + 1]) : -1;
        const int low = i + 2 < rest.size() ? hexValue(rest[i + 2]) : -1;
        if (high < 0 || low < 0) {
            throw DecodingError("\"" + std::string(url) + "\" has a malformed percent escape");
        }
        path.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return std::filesystem::path(path);
}

}  // namespace kelvo
