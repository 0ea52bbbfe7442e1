#include "cli/commands/ModelInventoryAccess.h"

#include <utility>

#include "cli/DataLocations.h"

namespace kelvo::cli {

namespace {

constexpr const char* kCatalogVariable = "KELVO_MODEL_CATALOG";

}  // namespace

ModelInventory openModelInventory(const Environment& environment,
                                  ModelInventory::Settings settings) {
    const auto catalogFile = environment.get(kCatalogVariable);
    ModelCatalog catalog = catalogFile && !catalogFile->empty()
                               ? ModelCatalog::fromJsonFile(*catalogFile)
                               : ModelCatalog::builtIn();
    return ModelInventory(std::move(catalog),
                          DataLocations(environment).applicationFolder() / "models",
                          std::move(settings));
}

}  // namespace kelvo::cli
