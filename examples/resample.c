/* Change the sampling rate of raw PCM: standard input to standard output.
 *
 *   resample FROM TO CHANNELS < in.s16 > out.s16 */
#include <qav.h>
#include <stdio.h>
#include <stdlib.h>

enum { IN_SAMPLES = 4096 };

int main(int argc, char **argv) {
  static int16_t in[IN_SAMPLES];
  FreqChangeState *state;
  int16_t *out;
  size_t samples;
  uint32_t from, to, channels, outFrames;

  if (argc != 4) {
    fprintf(stderr, "usage: resample FROM TO CHANNELS < in.s16 > out.s16\n");
    return 1;
  }
  from = (uint32_t)strtoul(argv[1], NULL, 10);
  to = (uint32_t)strtoul(argv[2], NULL, 10);
  channels = (uint32_t)strtoul(argv[3], NULL, 10);
  if (from == 0 || to == 0 || channels < 1 || channels > 2) return 1;

  out = malloc((size_t)((uint64_t)IN_SAMPLES * to / from + 2) * 2 * channels);
  if (out == NULL || NEB_freqChangeInit(&state, from, to, channels, 0) != 0) return 1;
  while ((samples = fread(in, sizeof *in, IN_SAMPLES, stdin)) > 0) {
    NEB_freqChange(state, in, (uint32_t)samples / channels, out, &outFrames);
    if (fwrite(out, sizeof *out * channels, outFrames, stdout) != outFrames) return 1;
  }
  NEB_freqChangeTerm(state);
  free(out);
  return 0;
}
