#include "tools/subcommands.h"

#include "tools/command_line.h"

namespace qav::tool {

const std::vector<Subcommand> subcommands = {};

}  // namespace qav::tool
