/* List the frames of an MPEG audio stream read from standard input: the frame functions, without the converter.
 *
 *   frames < stream.mp2 */
#include <qav.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  static uint8_t window[1 << 16];
  int16_t pcm[QAV_MAX_FRAME_PCM_BYTES / 2];
  uint32_t pcmBytes, consumed, held = 0;
  unsigned long long position = 0, frames = 0;
  DecoderSession *session;
  size_t n;

  if (zo_mpeg_Decode1FrameInit(&session) != QAV_DECODE_OK) return 1;
  while ((n = fread(window + held, 1, sizeof window - held, stdin)) > 0) {
    uint32_t at = 0;
    held += (uint32_t)n;
    while (held - at >= 4) {
      const uint32_t result = zo_mpeg_Decode1Frame(session, window + at, held - at, pcm, &pcmBytes, &consumed);
      if (result == QAV_DECODE_INCOMPLETE) break; /* its other bytes are still to be read */
      if (result == QAV_DECODE_OK) {
        printf("frame %llu at byte %llu: %u bytes, %u Hz, %u channel(s), %u kbit/s\n", frames++, position + at,
               (unsigned)consumed, (unsigned)NEB_mpeg_getFreqHz(session), (unsigned)NEB_mpeg_getChannel(session),
               (unsigned)NEB_mpeg_getKbps(session));
        at += consumed;
      } else {
        ++at; /* no frame stands here: look one byte further */
      }
    }
    memmove(window, window + at, held - at);
    held -= at;
    position += at;
  }
  zo_mpeg_Decode1FrameTerm(session);
  return frames > 0 ? 0 : 1;
}
