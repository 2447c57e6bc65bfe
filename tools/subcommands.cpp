#include "tools/subcommands.h"

#include "tools/command_line.h"

namespace qav::tool {

const std::vector<Subcommand> subcommands = {
    {"encode", "encode PCM files into Layer II streams", runEncode},
    {"resample", "convert PCM files to another sampling rate", runResample},
};

}  // namespace qav::tool
