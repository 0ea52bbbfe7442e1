#pragma once

#include "cli/CommandRegistry.h"

namespace kelvo::cli {

/// Each command group lives in its own source file and adds its commands here; a new group is
/// one new file and one line in registerAllCommands.

/// correct, hints.
void registerCorrectionCommands(CommandRegistry& registry);
/// fillers, normalize, prompt, todo.
void registerTextCommands(CommandRegistry& registry);
/// record.
void registerRecordCommand(CommandRegistry& registry);
/// dictate (built with the application's speech path).
void registerDictateCommand(CommandRegistry& registry);
/// process.
void registerProcessCommand(CommandRegistry& registry);
/// render.
void registerRenderCommand(CommandRegistry& registry);
/// history.
void registerHistoryCommand(CommandRegistry& registry);
/// dictionary list, add, remove, suggestions, accept, reject.
void registerDictionaryCommands(CommandRegistry& registry);
/// save, vault list, vault read, vault search, folder set, folder show, folder forget.
void registerVaultCommands(CommandRegistry& registry);
/// models list, models install, models remove.
void registerModelsCommand(CommandRegistry& registry);

/// Every command of the tool, in the order the help lists them.
void registerAllCommands(CommandRegistry& registry);

}  // namespace kelvo::cli
