#pragma once

// The user's speech models as every command sees them: the catalogue (the built-in one, or the
// JSON file named by KELVO_MODEL_CATALOG, a private mirror's list) measured against the models
// folder "<data home>/KelvoVoiceMac/models", the one the application uses. Throws kelvo::Error
// when the data home cannot be found and the catalogue's errors when its file is unusable.

#include "cli/Environment.h"
#include "core/services/ModelInventory.h"

namespace kelvo::cli {

ModelInventory openModelInventory(const Environment& environment,
                                  ModelInventory::Settings settings);

// The catalogue alone, for wiring that builds its inventory itself.
ModelCatalog openModelCatalog(const Environment& environment);

}  // namespace kelvo::cli
