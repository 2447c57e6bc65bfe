// The options of a subcommand as data, from which completions are made.
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace qav::tool {

// The argument that asks for it. It is for the build, so no help text shows it.
inline constexpr std::string_view kListOptions = "--list-options";

// {"subcommand", "summary", "options": [{"names", "description", "value", "words"}]}; "value" names what follows an
// option ("FILE"; null for a flag), "words" are all that may follow where they are few.
nlohmann::ordered_json optionList(const std::string &subcommand, const CLI::App &app);

}  // namespace qav::tool
