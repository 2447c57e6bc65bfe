// Which files are meant: names, lists of names, and folders with all that is in them.
#pragma once

#include <string>
#include <vector>

#include "tools/cli/common_options.h"

namespace qav::tool {

// Put the names of --files-from behind the inputs, and the files below each folder in place of it where --recursive was
// given: those whose names end in one of `extensions` (".wav"), sorted by name. Links to folders are not followed.
// Throws Failure.
void expandInputs(CommonOptions &options, const std::vector<std::string> &extensions);

}  // namespace qav::tool
