#include "tools/cli/option_list.h"

#include "tools/cli/help_formatter.h"

namespace qav::tool {

nlohmann::ordered_json optionList(const std::string &subcommand, const CLI::App &app) {
  using Json = nlohmann::ordered_json;
  Json options = Json::array();
  for (const CLI::Option *option : app.get_options()) {
    if (option->get_positional()) continue;
    Json names = Json::array();
    for (const std::string &name : option->get_snames()) names.push_back("-" + name);
    for (const std::string &name : option->get_lnames()) names.push_back("--" + name);
    const std::string value = valueName(*option);
    options.push_back({{"names", names},
                       {"description", option->get_description()},
                       {"value", value.empty() ? Json() : Json(value)},
                       {"words", valueWords(*option)}});
  }
  return {{"subcommand", subcommand}, {"summary", app.get_description()}, {"options", options}};
}

}  // namespace qav::tool
