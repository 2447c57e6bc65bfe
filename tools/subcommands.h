// The entry of each subcommand; arguments from the subcommand's own name on. Returns the exit status.
#pragma once

namespace qav::tool {}  // namespace qav::tool
