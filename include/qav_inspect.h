/** @file qav_inspect.h
 *
 *  What is in a Layer I or II frame, field by field: the header, which bits each subband was given, selection
 *  information, scale factors, the codes of the samples, where all of this stands, and what is left over.
 *
 *  It is for tools that look into streams. The fields are read by the stages of the decoder itself, so a frame is here
 *  what it is to zo_mpeg_Decode1Frame(). The conventions of qav.h hold: nothing is allocated, every byte string may be
 *  handed in, and nothing outside of it is read.
 *
 *  @code
 *  NEB_InspectFrame frame;
 *  if (NEB_inspectFrame(data, available, &frame, NULL) == NEB_INSPECT_GOOD)
 *    printf("%u of %u bits used\n", frame.endAt, 8 * frame.frameBytes);
 *  @endcode
 *
 *  A field lies inside the frame when its first bit does: bits beyond the last byte count as 0, as they do in the
 *  decoder.
 *
 *  Positions are in bits from the first bit of the header, that is the most significant bit of the first byte. The
 *  fields stand in this order: header, check word, allocation, selection information, scale factors, samples, and bits
 *  that no field uses; within a part subband by subband, channel 0 before channel 1.
 */
#ifndef QAV_INSPECT_H
#define QAV_INSPECT_H

#include "qav.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What became of a frame. The decoder accepts exactly those that are good. */
enum {
  NEB_INSPECT_GOOD = 0,      /**< whole, and its check word, if it has one, is right */
  NEB_INSPECT_BAD_CHECK = 1, /**< the side information is whole, but the check word is wrong */
  NEB_INSPECT_RUNS_OUT = 2,  /**< the fields ask for more bits than the frame has */
  NEB_INSPECT_NO_HEADER = 3, /**< the first four bytes are no header of Layer I or II, or are not there */
  NEB_INSPECT_INCOMPLETE = 4 /**< the frame is longer than the bytes available; only the header was read */
};

/** The index of a scale factor that is not in the frame. */
#define NEB_INSPECT_NO_SCALE_FACTOR 63u

/** One frame. Arrays are by channel and subband; what a frame does not have is 0, unless another value is named. Where
 *  both channels share a field in joint stereo, both have its values and its position. */
typedef struct NEB_InspectFrame {
  FrameParams header;     /**< as NEB_mpeg_get1FrameSize() reads it */
  uint32_t frameBytes;    /**< header included */
  uint32_t checkGiven;    /**< the check word in the frame */
  uint32_t checkComputed; /**< what it should be */
  uint32_t sideInfoWhole; /**< 1: everything before the samples lies inside the frame. Otherwise bits beyond it count
                               as 0, and there are no samples */
  uint32_t granules;      /**< granules of samples that lie inside the frame: 12 unless it runs out */

  uint8_t allocation[2][32];       /**< 0: nothing is coded. Layer I: bits of a sample less 1; Layer II: index into the
                                         subband's row of `header.allocTable` */
  uint8_t selection[2][32];        /**< Layer II: which thirds of the frame share a scale factor. 0: none; 1: the first
                                         two; 2: all; 3: the last two */
  uint8_t scaleFactor[2][3][32];   /**< indices of the three thirds, 0 .. 63; NEB_INSPECT_NO_SCALE_FACTOR where nothing
                                         is coded. 2^(1 - index / 3). Layer I has one, given three times */
  uint8_t scaleFactorsSent[2][32]; /**< how many fields of 6 bits they take, 0 .. 3 */
  uint8_t allocationBits[2][32];   /**< width of the allocation field, 0 .. 4 */
  uint8_t codeBits[2][32];         /**< width of a code of samples, 0, 2 .. 16 */
  uint8_t codesPerGranule[2][32];  /**< Layer I: 1; Layer II: 3, or 1 where three samples share a code */
  uint16_t allocationAt[2][32];    /**< position of the allocation field */
  uint16_t selectionAt[2][32];     /**< position of the selection information, 2 bits */
  uint16_t scaleFactorAt[2][32];   /**< position of the first scale factor; the others follow it */
  uint16_t sampleAt[2][32]; /**< position of the first granule's codes; each granule stands `granuleBits` later */

  uint32_t allocationPartAt;  /**< position where the allocation begins, and the header or the check word ends */
  uint32_t selectionPartAt;   /**< where it ends and the selection information begins */
  uint32_t scaleFactorPartAt; /**< where that ends and the scale factors begin */
  uint32_t samplesAt;         /**< where these end and the samples begin */
  uint32_t granuleBits;       /**< bits of one of the 12 granules */
  uint32_t endAt;             /**< where the samples end; less than 16 bits beyond a good frame */
} NEB_InspectFrame;

/** The codes of a frame's samples, by channel, subband and time: 36 in Layer II, 12 in Layer I, then 0. A code that three
 *  samples share is taken apart. 0 where nothing is coded, and from the first granule on that is not in the frame. */
typedef struct NEB_InspectCodes {
  uint16_t code[2][32][36];
} NEB_InspectCodes;

/** Read the fields of one frame.
 *
 *  @param data       the frame; its first bytes are the header
 *  @param available  bytes readable at `data`; the frame may be shorter
 *  @param frame      receives what is in it; all 0 with NEB_INSPECT_NO_HEADER
 *  @param codes      receives the codes of the samples; null: not wanted
 *  @return NEB_INSPECT_... */
QAV_API uint32_t NEB_inspectFrame(const uint8_t *data, uint32_t available, NEB_InspectFrame *frame,
                                  NEB_InspectCodes *codes);

/** Decode one frame and read its fields in one go: what zo_mpeg_Decode1Frame() and NEB_inspectFrame() do one after the
 *  other, with the same results, in less time.
 *
 *  @param session    as of zo_mpeg_Decode1Frame()
 *  @param data       the frame; its first bytes are the header
 *  @param available  bytes readable at `data`; the frame may be shorter
 *  @param out        receives the samples; at least QAV_MAX_FRAME_PCM_BYTES, see zo_mpeg_Decode1Frame()
 *  @param outBytes   receives how many bytes of samples there are: 0 unless the frame is good
 *  @param frame      receives what is in it, as from NEB_inspectFrame()
 *  @return NEB_INSPECT_... */
QAV_API uint32_t NEB_inspectDecode1Frame(DecoderSession *session, const uint8_t *data, uint32_t available, int16_t *out,
                                         uint32_t *outBytes, NEB_InspectFrame *frame);

#ifdef __cplusplus
}
#endif

#endif /* QAV_INSPECT_H */
