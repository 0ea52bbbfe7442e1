#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <thread>

#include "cli/commands/CommandGroups.h"
#include "cli/commands/ModelInventoryAccess.h"
#include "core/services/ModelInstallation.h"
#include "core/services/ModelInventory.h"
#include "core/services/ModelRecommender.h"
#include "core/support/Utf8.h"

namespace kelvo::cli {

namespace {

// A mirror for every model's file, as the settings window's download address.
constexpr const char* kBaseURLVariable = "KELVO_MODEL_DOWNLOAD_BASE_URL";
constexpr const char* kDictationLocale = "ja-JP";
constexpr int kProgressBarWidth = 30;

ModelInventory openInventory(const ParsedArguments& arguments, CommandContext& context) {
    ModelInventory::Settings settings;
    settings.downloadBaseURL =
        arguments.value("--base-url")
            .value_or(context.environment().get(kBaseURLVariable).value_or(""));
    return openModelInventory(context.environment(), settings);
}

// The model this machine should use for dictation, and why; kelvo::Error when none serves it.
ModelRecommender::Recommendation recommendation(const ModelInventory& inventory) {
    const auto recommended = ModelRecommender::recommend(
        inventory.catalog(), ModelCatalog::languageOfLocale(kDictationLocale),
        CpuCapabilities::detect());
    if (!recommended) {
        throw Error(std::string("no model in the catalogue serves ") + kDictationLocale);
    }
    return *recommended;
}

const ModelCatalogEntry& findModel(const ModelInventory& inventory,
                                   const ParsedArguments& arguments) {
    const auto name = arguments.positional(0);
    if (!name) {
        throw UsageError("missing model NAME (see kelvo models list)");
    }
    const ModelCatalogEntry* entry = inventory.catalog().find(*name);
    if (!entry) {
        throw Error("unknown model '" + *name + "' (see kelvo models list)");
    }
    return *entry;
}

std::string statusText(const ModelInventory& inventory, const ModelCatalogEntry& entry) {
    switch (inventory.status(entry)) {
        case ModelAssetStatus::installed:
            return "installed (" + inventory.verificationText(entry).value_or("") + ")";
        case ModelAssetStatus::downloading:
            if (inventory.isInstallationRunning(entry)) {
                return "downloading (" + ModelCatalog::sizeText(inventory.partialSizeBytes(entry)) +
                       ")";
            }
            return "downloading (" + ModelCatalog::sizeText(inventory.partialSizeBytes(entry)) +
                   " so far; install again to resume)";
        case ModelAssetStatus::supported:
            return entry.hasPublishedChecksum()
                       ? "not installed"
                       : "not installed (no published checksum; size and header are checked)";
        case ModelAssetStatus::unsupported:
            break;
    }
    return "unsupported";
}

std::string recommendationText(const ModelRecommender::Recommendation& recommended) {
    return recommended.entry->name + " (" + ModelCatalog::sizeText(recommended.entry->sizeBytes) +
           ") — " + recommended.reason;
}

void runList(const ParsedArguments& arguments, CommandContext& context) {
    const ModelInventory inventory = openInventory(arguments, context);
    if (arguments.has("--json")) {
        Json list = Json::array();
        for (const ModelCatalogEntry& entry : inventory.catalog().entries()) {
            Json item = Json::object();
            item["name"] = entry.name;
            item["sizeBytes"] = entry.sizeBytes;
            item["status"] = std::string(modelAssetStatusName(inventory.status(entry)));
            if (const auto verification = inventory.verificationText(entry)) {
                item["verification"] = *verification;
            }
            item["url"] = inventory.downloadURL(entry);
            item["file"] = inventory.modelFile(entry).string();
            item["description"] = entry.description;
            list.push_back(std::move(item));
        }
        context.writeJson(list);
        return;
    }
    char line[256];
    std::snprintf(line, sizeof line, "%-22s %9s  %s", "NAME", "SIZE", "STATUS");
    context.writeText(line);
    // A catalogue file is the user's, but what it holds must not steer the terminal.
    for (const ModelCatalogEntry& entry : inventory.catalog().entries()) {
        std::snprintf(line, sizeof line, "%-22s %9s  %s", visibleText(entry.name).c_str(),
                      ModelCatalog::sizeText(entry.sizeBytes).c_str(),
                      statusText(inventory, entry).c_str());
        context.writeText(entry.description.empty()
                              ? std::string(line)
                              : std::string(line) + " — " + visibleText(entry.description));
    }
    const ModelCatalogEntry* serving = inventory.modelForLocale(kDictationLocale);
    context.writeText(
        std::string("Dictation (") + kDictationLocale + ") uses: " +
        (serving && inventory.isInstalled(*serving)
             ? visibleText(serving->name)
             : std::string("no model installed (kelvo models install --recommended)")));
    if (const auto recommended = ModelRecommender::recommend(
            inventory.catalog(), ModelCatalog::languageOfLocale(kDictationLocale),
            CpuCapabilities::detect())) {
        context.writeText("Recommended for this computer: " + recommendationText(*recommended));
    }
    context.writeText("Folder: " + inventory.modelsFolder().string());
}

void drawProgress(std::ostream& out, const ModelInstallation& installation) {
    const double fraction = installation.fractionCompleted();
    const int filled = static_cast<int>(fraction * kProgressBarWidth);
    const std::uint64_t total = installation.totalBytes();
    out << "\r[" << std::string(static_cast<std::size_t>(filled), '#')
        << std::string(static_cast<std::size_t>(kProgressBarWidth - filled), '.') << "] ";
    char text[64];
    std::snprintf(text, sizeof text, "%3.0f%%  %s / %s ", fraction * 100,
                  ModelCatalog::sizeText(installation.bytesOnDisk()).c_str(),
                  total ? ModelCatalog::sizeText(total).c_str() : "?");
    out << text << std::flush;
}

void runInstall(const ParsedArguments& arguments, CommandContext& context) {
    const ModelInventory inventory = openInventory(arguments, context);
    const ModelCatalogEntry* chosen = nullptr;
    if (arguments.has("--recommended")) {
        if (arguments.positional(0)) {
            throw UsageError("give a model NAME or --recommended, not both");
        }
        const ModelRecommender::Recommendation recommended = recommendation(inventory);
        // Said before the download starts, and kept when it fails (unlike the held-back output).
        context.diagnostics() << "Recommended for this computer: "
                              << recommendationText(recommended) << "\n";
        chosen = recommended.entry;
    } else {
        chosen = &findModel(inventory, arguments);
    }
    const ModelCatalogEntry& entry = *chosen;
    if (inventory.isInstalled(entry)) {
        context.writeText("Model " + entry.name + " is already installed (" +
                          inventory.verificationText(entry).value_or("") + ")");
        return;
    }
    std::ostream& diagnostics = context.diagnostics();
    const bool terminal = &diagnostics == &std::cerr && ::isatty(STDERR_FILENO) == 1;
    diagnostics << "Installing " << entry.name << " from " << inventory.downloadURL(entry)
                << (inventory.partialSizeBytes(entry) > 0 ? " (resuming)" : "") << "\n"
                << std::flush;
    if (!entry.hasPublishedChecksum()) {
        diagnostics << "No checksum is published for " << entry.name
                    << ": only its size and model header will be verified\n";
    }

    ModelInstallation installation(inventory, entry);
    std::exception_ptr failure;
    std::atomic<bool> done = false;
    std::thread worker([&] {
        try {
            installation.run();
        } catch (...) {
            failure = std::current_exception();
        }
        done = true;
    });
    while (terminal && !done) {
        drawProgress(diagnostics, installation);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    worker.join();
    if (terminal) {
        drawProgress(diagnostics, installation);
        diagnostics << "\n";
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    context.writeText("Installed " + entry.name + " in " + inventory.modelFile(entry).string() +
                      " (" + inventory.verificationText(entry).value_or("") + ")");
}

void runRemove(const ParsedArguments& arguments, CommandContext& context) {
    const ModelInventory inventory = openInventory(arguments, context);
    const ModelCatalogEntry& entry = findModel(inventory, arguments);
    const bool present = inventory.status(entry) != ModelAssetStatus::supported;
    inventory.remove(entry);
    context.writeText(present ? "Removed " + entry.name
                              : "Model " + entry.name + " was not installed");
}

}  // namespace

void registerModelsCommand(CommandRegistry& registry) {
    registry.add(Command{
        "models list",
        "[--json]",
        "List the speech models for on-device dictation with their size and status.",
        ArgumentParser().flag("--json"),
        runList,
    });
    registry.add(Command{
        "models install",
        "NAME | --recommended [--base-url URL]",
        "Download, verify and install a speech model (resumes an interrupted download); "
        "--recommended picks the most accurate model that keeps up with speech on this computer.",
        ArgumentParser().option("--base-url").flag("--recommended").positionals(1),
        runInstall,
    });
    registry.add(Command{
        "models remove",
        "NAME",
        "Delete an installed or partly downloaded speech model.",
        ArgumentParser().positionals(1),
        runRemove,
    });
}

}  // namespace kelvo::cli
