#include <algorithm>
#include <filesystem>
#include <memory>

#include "cli/ReportedFailure.h"
#include "cli/commands/CommandGroups.h"
#include "cli/commands/JsonInput.h"
#include "core/engines/MarkdownFormatter.h"
#include "core/services/BookmarkManager.h"
#include "core/services/LocalFolderSaveAdapter.h"
#include "core/services/VaultBrowser.h"
#include "core/support/Utf8.h"
#include "core/support/Uuid.h"

namespace kelvo::cli {

namespace {

/// The folder the user picked once with `kelvo folder set` lives as a bookmark in this suite,
/// $XDG_CONFIG_HOME/KelvoVoiceMac/kelvo.json, under this key; save and vault read it whenever
/// --folder is not given.
constexpr const char* kBookmarkSuite = "kelvo";
constexpr const char* kSaveFolderKey = "saveFolder";

std::shared_ptr<BookmarkManager> folderBookmarks() {
    return std::make_shared<BookmarkManager>(kBookmarkSuite);
}

/// The folder named on the command line stands in for the bookmark: there is no scoped access to
/// release.
std::optional<ScopedURL> folderOption(const ParsedArguments& arguments) {
    return ScopedURL{std::filesystem::path(*arguments.value("--folder")), [] {}};
}

/// A folder that was remembered but is gone now is as good as none: saving must not recreate it
/// somewhere the user no longer looks.
std::filesystem::path rememberedFolder(const BookmarkManager& bookmarks) {
    std::optional<std::filesystem::path> folder = bookmarks.resolveURL(kSaveFolderKey);
    if (!folder) {
        throw VaultBrowser::Error::noBookmark();
    }
    return *folder;
}

LocalFolderSaveAdapter saveAdapterOf(const ParsedArguments& arguments) {
    if (arguments.has("--folder")) {
        return LocalFolderSaveAdapter([&arguments] { return folderOption(arguments); },
                                      *arguments.value("--folder"));
    }
    auto bookmarks = folderBookmarks();
    std::filesystem::path folder = rememberedFolder(*bookmarks);
    return LocalFolderSaveAdapter(
        [bookmarks] { return bookmarks->resolveScopedURL(kSaveFolderKey); }, std::move(folder));
}

void runSave(const ParsedArguments& arguments, CommandContext& context) {
    const std::optional<std::string> subpath = arguments.value("--subpath");
    // A folder name with a line break or an escape in it is a slip, never a place for a note.
    if (subpath && std::any_of(subpath->begin(), subpath->end(),
                               [](unsigned char c) { return c < 0x20 || c == 0x7F; })) {
        throw UsageError("--subpath must not contain control characters: " + visibleText(*subpath));
    }
    const OverwritePolicy policy =
        arguments.enumeration<OverwritePolicy>("--policy").value_or(OverwritePolicy::createNew);
    const auto result = decodeStandardInput<VoiceInputResult>(context, "a VoiceInputResult");
    const MarkdownDocument document =
        MarkdownFormatter().makeDocument(result, arguments.values("--tag"));

    LocalFolderSaveAdapter adapter = saveAdapterOf(arguments);
    SaveRequest request;
    request.destinationID = makeUuid();
    request.subpath = subpath;
    request.overwritePolicy = policy;
    const SaveResult saved = adapter.save(document, request);
    // The SaveResult is the answer either way; a failed save also says why on standard error.
    context.writeJson(Json(saved));
    if (!saved.success) {
        throw ReportedFailure(saved.error.value_or("the note was not saved"));
    }
}

VaultBrowser browserOf(const ParsedArguments& arguments) {
    if (arguments.has("--folder")) {
        return VaultBrowser([&arguments] { return folderOption(arguments); });
    }
    return VaultBrowser(folderBookmarks(), kSaveFolderKey);
}

void writePaths(CommandContext& context, const std::vector<VaultEntry>& entries) {
    for (const VaultEntry& entry : entries) {
        // A file name may hold any byte but "/" and NUL; the terminal must not obey it.
        context.writeText(visibleText(entry.relativePath));
    }
}

void runVaultList(const ParsedArguments& arguments, CommandContext& context) {
    writePaths(context, browserOf(arguments).list());
}

void runVaultRead(const ParsedArguments& arguments, CommandContext& context) {
    const auto relativePath = arguments.positional(0);
    if (!relativePath) {
        throw UsageError("missing the note's relative path");
    }
    const VaultFile file = browserOf(arguments).read(*relativePath);
    Json frontmatter = Json::array();
    for (const auto& [key, value] : file.frontmatter) {
        frontmatter.push_back(Json::array({key, value}));
    }
    Json out = Json::object();
    out["frontmatter"] = std::move(frontmatter);
    out["body"] = file.body;
    out["wikiLinks"] = file.wikiLinks;
    context.writeJson(out);
}

void runVaultSearch(const ParsedArguments& arguments, CommandContext& context) {
    const auto query = arguments.positional(0);
    if (!query) {
        throw UsageError("missing the search text");
    }
    writePaths(context, browserOf(arguments).search(*query));
}

void runFolderSet(const ParsedArguments& arguments, CommandContext& context) {
    const auto folder = arguments.positional(0);
    if (!folder) {
        throw UsageError("missing the folder");
    }
    const auto bookmarks = folderBookmarks();
    bookmarks->saveBookmark(std::filesystem::absolute(*folder), kSaveFolderKey);
    context.writeText(visibleText(rememberedFolder(*bookmarks).string()));
}

void runFolderShow(const ParsedArguments&, CommandContext& context) {
    context.writeText(visibleText(rememberedFolder(*folderBookmarks()).string()));
}

void runFolderForget(const ParsedArguments&, CommandContext&) {
    folderBookmarks()->removeBookmark(kSaveFolderKey);
}

}  // namespace

void registerVaultCommands(CommandRegistry& registry) {
    registry.add(Command{
        "save",
        "[--folder DIR] [--subpath P] [--policy createNew|overwrite|appendTimestamp] [--tag T]...",
        "Read a VoiceInputResult as JSON on standard input, save it as a Markdown note in DIR "
        "(default: the remembered folder) and print the SaveResult as JSON.",
        ArgumentParser()
            .option("--folder")
            .option("--subpath")
            .option("--policy")
            .repeatable("--tag"),
        runSave,
    });
    registry.add(Command{
        "vault list",
        "[--folder DIR]",
        "Print the relative path of every folder and note in the vault DIR (default: the "
        "remembered folder), newest first.",
        ArgumentParser().option("--folder"),
        runVaultList,
    });
    registry.add(Command{
        "vault read",
        "[--folder DIR] REL",
        "Print the note REL of the vault DIR as JSON: front matter pairs, body and wiki links.",
        ArgumentParser().option("--folder").positionals(1),
        runVaultRead,
    });
    registry.add(Command{
        "vault search",
        "[--folder DIR] QUERY",
        "Print the relative path of every note of the vault DIR whose name contains QUERY.",
        ArgumentParser().option("--folder").positionals(1),
        runVaultSearch,
    });
    registry.add(Command{
        "folder set",
        "DIR",
        "Remember DIR as the folder that save and vault use when no --folder is given, and print "
        "it.",
        ArgumentParser().positionals(1),
        runFolderSet,
    });
    registry.add(Command{
        "folder show",
        "",
        "Print the remembered folder.",
        ArgumentParser(),
        runFolderShow,
    });
    registry.add(Command{
        "folder forget",
        "",
        "Forget the remembered folder (the folder itself is left as it is).",
        ArgumentParser(),
        runFolderForget,
    });
}

}  // namespace kelvo::cli
