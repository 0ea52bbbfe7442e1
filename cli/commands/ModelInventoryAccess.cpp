#include "cli/commands/ModelInventoryAccess.h"

#include <utility>

namespace kelvo::cli {

namespace {

constexpr const char* kCatalogVariable = "KELVO_MODEL_CATALOG";

}  // namespace

ModelCatalog openModelCatalog(const Environment& environment) {
    const auto catalogFile = environment.get(kCatalogVariable);
    return catalogFile && !catalogFile->empty() ? ModelCatalog::fromJsonFile(*catalogFile)
                                                : ModelCatalog::builtIn();
}

ModelInventory openModelInventory(const Environment& environment,
                                  ModelInventory::Settings settings) {
    return ModelInventory(openModelCatalog(environment), environment.dataLocations().modelsFolder(),
                          std::move(settings));
}

}  // namespace kelvo::cli
