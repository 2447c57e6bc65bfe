#include "tools/inspect/inspect_page.h"

namespace qav::tool {

std::string reportPage(const Json &data) {
  const std::string json = data.dump();
  std::string page;
  page.reserve(reportPageBefore.size() + json.size() + reportPageBehind.size());
  page += reportPageBefore;
  // In a script element a "<" could begin what ends it; inside JSON it only stands in strings.
  for (const char c : json) {
    if (c == '<')
      page += "\\u003c";
    else
      page += c;
  }
  page += reportPageBehind;
  return page;
}

}  // namespace qav::tool
