/* Uses the installed library as a stranger would. */
#include <qav.h>
#include <stdio.h>

int main(void) {
  const uint32_t allocation[2][32] = {{0}};
  uint32_t crc = 0;
  FrameParams fp = {0};
  fp.id = 1;
  fp.layer = 2;
  fp.channels = 2;
  fp.freqHz = 44100;
  fp.kbps = 192;
  neb_hdr_to_frps(&fp);
  neb_I_CRC_calc(&fp, allocation, &crc);
  if (fp.sblimit != 30 || crc == 0 || crc > 0xFFFF) {
    fprintf(stderr, "sblimit %d, check word %u\n", (int)fp.sblimit, (unsigned)crc);
    return 1;
  }
  return 0;
}
