#pragma once

#include <filesystem>
#include <functional>

namespace kelvo {

/// A folder handed out by BookmarkManager together with the action that ends the access begun
/// for it. The holder owns the access: it calls `release` exactly once when it is done with the
/// folder, on every path out of its work. On Linux there is no access to end, so the managers'
/// releases do nothing beyond noticing a second call (an assertion in debug builds); callers still
/// release so that a platform with real scoped access can slot in without changing them.
struct ScopedURL {
    std::filesystem::path url;
    std::function<void()> release;
};

}  // namespace kelvo
