#include "psycho/psycho_state.h"

void neb_psycho_anal(const int16_t *samples, uint32_t ch, float *smr, PsychoState *state) {
  state->kernels->analyse(samples, state->tables, state->channel[ch], smr);
}
