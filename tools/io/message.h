// One-line messages: program, file, place, what is wrong, what to do about it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/io/failure.h"

namespace qav::tool {

// A file name as one readable line: as it is when it is printable UTF-8, else quoted the way the shell reads it back.
std::string displayName(std::string_view name);

// The text with control characters, and what is no UTF-8, as \ooo: nothing in it steers a terminal.
std::string inertText(std::string_view text);

// The same JSON with the control characters that JSON allows, U+007F to U+009F, as \u00xx. They stand only in strings.
std::string inertJson(std::string_view json);

// The bytes as valid UTF-8, anything else replaced by U+FFFD: for JSON.
std::string toUtf8(std::string_view bytes);

// "qav: FILE: PLACE: what is wrong; what to do about it", without the line's end; empty parts are left out.
std::string messageLine(std::string_view file, const Complaint &complaint);

// "1:02:03.456", the hours only where there are any.
std::string timeText(double seconds);

// "frame 12, byte 5016 (0x1398), 0:00.313"
std::string placeText(uint64_t frame, uint64_t offset, double seconds);

// "1 byte", "2 bytes"
std::string counted(uint64_t number, std::string_view noun);

// The system's text for an errno value.
std::string errorText(int error);

}  // namespace qav::tool
