#pragma once

#include <filesystem>

namespace kelvo {

/// The one rule for keeping a path the user or a file supplied inside a folder: the vault browser
/// (notes it lists and reads) and the local folder save adapter (subfolders it creates) both go
/// through it. Pure path arithmetic, no I/O: the callers resolve links first, as only they know
/// whether the path must exist. Any thread.

/// Whether `relative` climbs by name: it holds a ".." component. Such a path is refused before
/// anything is resolved or created, even when it would come back inside.
bool hasParentComponent(const std::filesystem::path& relative);

/// Whether `inner` is `outer` or lies in it, compared component by component. Both must already
/// be resolved (canonical); an empty last component of `outer` (a trailing separator) is ignored.
bool isWithin(const std::filesystem::path& outer, const std::filesystem::path& inner);

}  // namespace kelvo
