// The loudness fields of a Broadcast Wave file's bext chunk, version 2 (EBU Tech 3285).
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/io/output_file.h"
#include "tools/loudness/loudness.h"

namespace qav::tool {

// The chunk's content up to its coding history, which may be empty.
inline constexpr size_t kBextBytes = 602;

// Write the version and the loudness into a bext chunk whose content begins at `offset` of the output.
void patchBextLoudness(OutputFile &out, uint64_t offset, const Loudness &loudness);

// A value as the chunk stores it: hundredths, or 0x7FFF for what is not known or beyond +-99.99.
uint16_t bextLevel(double value);

}  // namespace qav::tool
