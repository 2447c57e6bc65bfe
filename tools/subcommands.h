// The entry of each subcommand; arguments from the subcommand's own name on. Returns the exit status.
#pragma once

namespace qav::tool {

int runEncode(int argc, char **argv);
int runResample(int argc, char **argv);

}  // namespace qav::tool
