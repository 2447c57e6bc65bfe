// The page of a report: a template compiled into the tool, with the data in its place.
#pragma once

#include <string>
#include <string_view>

#include "tools/inspect/inspect_array.h"

namespace qav::tool {

// The template before and behind the data; made from tools/report/ when the tool is built.
extern const std::string_view reportPageBefore, reportPageBehind;

// One text, complete in itself.
std::string reportPage(const Json &data);

}  // namespace qav::tool
