#include "decoder/synthesis.h"

#include <cstring>

namespace qav {

void SynthesisHistory::advance(int32_t blocks) { std::memmove(row[0], row[blocks], sizeof row[0] * kHistoryRows); }

}  // namespace qav
