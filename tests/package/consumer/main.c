/* Uses the installed library as a stranger would: encodes a second of a square wave, and decodes it. */
#include <qav.h>
#include <stdio.h>

static QAV_Handle *converter(uint32_t from, uint32_t to) {
  QAV_Handle *h = NULL;
  if (QAV_createHandle(&h) != QAV_OK) return NULL;
  QAV_setConfigure(h, QAV_ITEM_IN_FORMAT, from);
  QAV_setConfigure(h, QAV_ITEM_OUT_FORMAT, to);
  if (to == QAV_FORMAT_LAYER2) QAV_setConfigure(h, QAV_ITEM_IN_FREQ_HZ, 48000);
  QAV_setConfigure(h, QAV_ITEM_BUFFER_SIZE, 4 * 48000);
  return QAV_detectConfigure(h) == QAV_OK ? h : NULL;
}

int main(void) {
  enum { FRAMES = 48000, STREAM_FRAMES = FRAMES / 1152 };
  static int16_t pcm[2 * FRAMES];
  static uint8_t stream[QAV_ENCODE_OUT_BYTES(4 * FRAMES, 48000, 48000)];
  static uint8_t decoded[QAV_DECODE_OUT_BYTES(sizeof stream)];
  QAV_Handle *const encoder = converter(QAV_FORMAT_PCM, QAV_FORMAT_LAYER2);
  QAV_Handle *const decoder = converter(QAV_FORMAT_MPEG, QAV_FORMAT_PCM);
  uint32_t streamBytes = 0, decodedBytes = 0, version = 0;
  int i;

  if (encoder == NULL || decoder == NULL) return 1;
  for (i = 0; i < 2 * FRAMES; ++i) pcm[i] = i / 200 % 2 ? 8000 : -8000;
  if (QAV_convert(encoder, (const uint8_t *)pcm, sizeof pcm, stream, &streamBytes) != QAV_OK) return 2;
  if (QAV_convert(decoder, stream, streamBytes, decoded, &decodedBytes) != QAV_OK) return 3;
  if (decodedBytes != STREAM_FRAMES * QAV_MAX_FRAME_PCM_BYTES) {
    fprintf(stderr, "%u bytes of stream, %u of PCM\n", (unsigned)streamBytes, (unsigned)decodedBytes);
    return 4;
  }
  if (QAV_getConfigure(NULL, QAV_ITEM_VERSION, &version, NULL) != QAV_OK || version != QAV_VERSION) return 5;
  return QAV_deleteHandle(encoder) != QAV_OK || QAV_deleteHandle(decoder) != QAV_OK;
}
