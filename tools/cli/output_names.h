// Where the output of each input goes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/cli/common_options.h"

namespace qav::tool {

// The path's last name with everything from its last dot replaced by `extension` (".wav"); a leading dot is no
// extension's.
std::string withExtension(const std::string &path, const std::string &extension);

// From the last dot of the path's last name on; empty without one.
std::string extensionOf(const std::string &path);

// The output of every input, in their order: what -o names, a file, a directory, or "-"; without -o beside the input,
// where standard input goes to standard output. Below a directory the folders that --recursive went through are made
// again; it is created where several inputs, or a list or a folder of them, name one that does not exist. Throws Failure
// (usage) when two inputs would end in one output, or an output is one of the inputs.
std::vector<std::string> planOutputs(const CommonOptions &options, const std::string &extension);

// The same where the extension depends on the input, or on whether the output goes beside it.
using ExtensionFor = std::function<std::string(const std::string &input, bool isBeside)>;
std::vector<std::string> planOutputs(const CommonOptions &options, const ExtensionFor &extensionFor);

// Throws Failure (usage) when the output is standard output, and that is a terminal or will hold the result of --json.
enum class OutputKind { samples, stream };
void refuseUnfitStandardOutput(const CommonOptions &options, const std::string &output, OutputKind kind);

// Throws Failure (usage) when the one output of several inputs is one of them.
void refuseInputAsOutput(const std::vector<std::string> &inputs, const std::string &output);

}  // namespace qav::tool
