#include "cli/commands/CommandGroups.h"

namespace kelvo::cli {

void registerAllCommands(CommandRegistry& registry) {
    registerCorrectionCommands(registry);
    registerTextCommands(registry);
    registerRecordCommand(registry);
#ifdef KELVO_WITH_DICTATE
    registerDictateCommand(registry);
#endif
    registerProcessCommand(registry);
    registerRenderCommand(registry);
    registerHistoryCommand(registry);
    registerDictionaryCommands(registry);
    registerVaultCommands(registry);
    registerModelsCommand(registry);
}

}  // namespace kelvo::cli
