#include <iostream>
#include <string>
#include <vector>

#include "cli/CommandRegistry.h"
#include "cli/Environment.h"
#include "cli/commands/CommandGroups.h"

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    kelvo::cli::CommandRegistry registry;
    kelvo::cli::registerAllCommands(registry);
    const kelvo::cli::Environment environment = kelvo::cli::Environment::ofProcess();
    return registry.run(arguments, std::cin, std::cout, std::cerr, environment);
}
