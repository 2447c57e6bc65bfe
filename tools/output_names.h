// Where the output of each input goes.
#pragma once

#include <string>
#include <vector>

namespace qav::tool {

// The path's last name with everything from its last dot replaced by `extension` (".wav"); a leading dot is no
// extension's.
std::string withExtension(const std::string &path, const std::string &extension);

// From the last dot of the path's last name on; empty without one.
std::string extensionOf(const std::string &path);

// The output of every input, in their order. `output` is what -o named: a file, a directory, "-", or empty: beside the
// input; standard input then goes to standard output. Creates the directory where several inputs name one that does not
// exist. Throws Failure (usage) when two inputs would end in one output, or an output is one of the inputs.
std::vector<std::string> planOutputs(const std::vector<std::string> &inputs, const std::string &output,
                                     const std::string &extension);

}  // namespace qav::tool
