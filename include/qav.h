/** @file qav.h
 *
 *  qav: MPEG audio in memory. The library encodes 16-bit PCM into MPEG-1 Layer II, decodes Layer I and II of MPEG-1 and
 *  of the MPEG-2 low sampling frequencies, and converts sampling rates. It is handed blocks of bytes and hands blocks
 *  of bytes back: it opens no files, starts no threads, keeps no global mutable state and prints nothing.
 *
 *  Two ways in
 *  -----------
 *  - The converter (QAV_*): one handle, configured once with numbered items, then fed blocks of any size. Start here.
 *  - The parts it is built of: one frame in, one frame out (zo_mpeg_*), and headers, check words, buffering,
 *    resampling, the real FFT and the psychoacoustic model (NEB_*, neb_*).
 *
 *  A complete program: standard input, an MPEG stream; standard output, 16-bit PCM.
 *
 *  @code
 *  #include <stdio.h>
 *  #include <qav.h>
 *
 *  int main(void) {
 *    static uint8_t in[8192], out[QAV_DECODE_OUT_BYTES(8192)];
 *    uint32_t outBytes, result = QAV_OK;
 *    size_t n;
 *    QAV_Handle *h;
 *    if (QAV_createHandle(&h) != QAV_OK) return 1;
 *    QAV_setConfigure(h, QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG);
 *    QAV_setConfigure(h, QAV_ITEM_OUT_FORMAT, QAV_FORMAT_PCM);
 *    if (QAV_detectConfigure(h) != QAV_OK) return 1;
 *    while (result == QAV_OK && (n = fread(in, 1, sizeof in, stdin)) > 0) {
 *      result = QAV_convert(h, in, (uint32_t)n, out, &outBytes);
 *      if (result == QAV_OK) fwrite(out, 1, outBytes, stdout);
 *    }
 *    QAV_convert(h, NULL, 0, out, &outBytes);
 *    QAV_deleteHandle(h);
 *    return result == QAV_OK ? 0 : 1;
 *  }
 *  @endcode
 *
 *  Conventions
 *  -----------
 *  - PCM is signed 16-bit in host byte order; stereo is interleaved, channel 0 (left) first. A sample frame is one
 *    sample per channel. A name says what it counts: `...Bytes` bytes, `...Frames` or `frames` sample frames, `...Hz`
 *    hertz.
 *  - Ownership: an Init or create function allocates one object and stores it through its first argument; the matching
 *    Term or delete function takes the object itself and frees everything it owns. Input is only read; output memory is
 *    the caller's. Nothing else is allocated: no function that works on a frame or a block allocates.
 *  - Threads: one object belongs to one thread at a time; different objects may be used on different threads at once.
 *  - Failures are results, never messages. Unless a function says otherwise, output arguments keep their value when it
 *    fails.
 *  - Every byte string is a valid stream for the decoding functions: damage is reported by a result, and nothing is
 *    read or written outside the memory handed in.
 *  - "Not null" in a description is a duty of the caller; where null is allowed, that is said.
 */
#ifndef QAV_H
#define QAV_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef QAV_API
#if defined(__GNUC__)
#define QAV_API __attribute__((visibility("default")))
#else
#define QAV_API
#endif
#endif

/** The version of this header; QAV_getConfigure() with QAV_ITEM_VERSION tells the version of the library. */
#define QAV_VERSION_MAJOR 9
#define QAV_VERSION_MINOR 0
#define QAV_VERSION_PATCH 3
#define QAV_VERSION_BUILD 3
#define QAV_VERSION                                                                                                 \
  (((uint32_t)QAV_VERSION_MAJOR << 24) | ((uint32_t)QAV_VERSION_MINOR << 16) | ((uint32_t)QAV_VERSION_PATCH << 8) | \
   (uint32_t)QAV_VERSION_BUILD)

/** The longest frame that is ever encoded or accepted, in bytes: Layer II, 384 kbit/s at 32000 Hz, with padding. */
#define QAV_MAX_FRAME_BYTES 1729

/** The most PCM that one frame decodes to, in bytes: 1152 stereo sample frames. */
#define QAV_MAX_FRAME_PCM_BYTES 4608

/** Sample frames in one Layer II frame. */
#define QAV_SAMPLES_PER_FRAME 1152

/** Bytes the encoder may write beyond the last byte of a frame. */
#define QAV_ENCODE_SLACK_BYTES 3

/** Output bytes that suffice for one decoding QAV_convert() call of `inBytes` bytes: the shortest frame is 32 bytes,
 *  and one more frame may be completed from bytes of earlier calls. */
#define QAV_DECODE_OUT_BYTES(inBytes) (((inBytes) / 32u + 1u) * QAV_MAX_FRAME_PCM_BYTES)

/** Output bytes that suffice for one encoding QAV_convert() call of `inBytes` bytes of PCM (bytes of samples after
 *  8-bit input has been widened; 0: the end) from `inFreqHz` to `outFreqHz`, mono or stereo: almost a block of 1152
 *  sample frames may have waited for these bytes. */
#define QAV_ENCODE_OUT_BYTES(inBytes, inFreqHz, outFreqHz)                                                       \
  ((uint32_t)((((uint64_t)(inBytes) + 4608u) * (outFreqHz) / (inFreqHz) / 2304u + 2u) * (QAV_MAX_FRAME_BYTES)) + \
   QAV_ENCODE_SLACK_BYTES)

/* ------------------------------------------------------------------------------------------------------- types ---- */

/** A converter; QAV_createHandle(). */
typedef struct QAV_Handle QAV_Handle;
/** The state of decoding one stream; zo_mpeg_Decode1FrameInit(). */
typedef struct DecoderSession DecoderSession;
/** The state of encoding one stream; zo_mpeg_Encode1FrameInit(). */
typedef struct EncoderSession EncoderSession;
/** The state of the psychoacoustic model for one stream; neb_psycho_analInit(). */
typedef struct PsychoState PsychoState;
/** A byte queue that hands out whole units; NEB_bufferingInit(). */
typedef struct ByteFifo ByteFifo;
/** The state of one sampling-rate conversion; NEB_freqChangeInit(). */
typedef struct FreqChangeState FreqChangeState;

/** One quantiser of one subband (ISO/IEC 11172-3 Tables B.2 and B.4). Entry 0 of a subband's row is special: its `bits`
 *  is the width in bits of the subband's allocation field in the stream, its other fields are 0. */
typedef struct AllocEntry {
  uint16_t steps; /**< number of quantisation levels, 3 .. 65535 */
  uint16_t bits;  /**< bits of one codeword, 3 .. 16 */
  uint16_t group; /**< 1: one codeword carries three samples; 3: every sample has its own */
  uint16_t quant; /**< quantisation class, 0 .. 16 */
} AllocEntry;

/** A frame header (ISO/IEC 11172-3 clause 2.4.1.3) and what follows from it. */
typedef struct FrameParams {
  int32_t id;                         /**< 1: MPEG-1; 0: MPEG-2 low sampling frequencies */
  int32_t layer;                      /**< 1 or 2; 0 before the first header */
  int32_t protection;                 /**< 1: a 16-bit check word follows the header (the wire bit is the opposite) */
  int32_t bitrateIndex;               /**< 1 .. 14 */
  int32_t samplingIndex;              /**< 0 .. 2: 44100, 48000, 32000 Hz (MPEG-1) or 22050, 24000, 16000 Hz */
  int32_t padding;                    /**< 1: the frame is one slot longer */
  int32_t privateBit;                 /**< 0 or 1, free for private use */
  int32_t mode;                       /**< 0 stereo, 1 joint stereo, 2 dual channel, 3 single channel */
  int32_t modeExt;                    /**< 0 .. 3: joint stereo begins at subband 4, 8, 12, 16 */
  int32_t copyright;                  /**< 0 or 1 */
  int32_t original;                   /**< 1: original; 0: copy */
  int32_t emphasis;                   /**< 0 none, 1 50/15 microseconds, 2 reserved, 3 CCITT J.17 */
  const AllocEntry (*allocTable)[16]; /**< Layer II: 32 rows, one per subband; constant data of the library */
  int32_t channels;                   /**< 1 when `mode` is 3, else 2 */
  int32_t sblimit;                    /**< subbands with an allocation: 32 in Layer I; 8, 12, 27 or 30 in Layer II */
  int32_t jsbound;                    /**< first subband coded jointly: `sblimit` unless `mode` is 1; may exceed it */
  int32_t freqHz;                     /**< sampling rate in Hz */
  int32_t kbps;                       /**< bitrate in kbit/s of the whole stream */
} FrameParams;

/** Results of the QAV_ functions. */
enum {
  QAV_OK = 0,             /**< done */
  QAV_BAD_VALUE = 1,      /**< an item, a value or a combination is not allowed; correct it and try again */
  QAV_NO_MEMORY = 2,      /**< out of memory (from QAV_setConfigure(): null handle) */
  QAV_BAD_CONVERSION = 4, /**< this pair of formats, or of rates when decoding, is not converted */
  QAV_TOO_LONG = 7,       /**< the block is longer than the buffer size; nothing was consumed; cut it */
  QAV_BAD_RATE = 8,       /**< the sampling rate cannot be encoded; ask for 32000, 44100 or 48000 Hz */
  QAV_BAD_STATE = 9,      /**< null handle, wrong state, or an inner failure */
  QAV_ENDED = 10          /**< the stream has already ended with a short block */
};

/** Results of the decoder functions. */
enum {
  QAV_DECODE_OK = 0,         /**< done */
  QAV_DECODE_NO_MEMORY = 4,  /**< out of memory */
  QAV_DECODE_REFUSED = 5,    /**< bad header, check word mismatch, or the frame's bits run out */
  QAV_DECODE_INCOMPLETE = 11 /**< the frame is longer than the bytes available */
};

/** Results of zo_mpeg_Encode1FrameInit(). */
enum {
  QAV_ENCODE_OK = 0,          /**< done */
  QAV_ENCODE_BAD_RATE = 1,    /**< the sampling rate is not 32000, 44100 or 48000 Hz */
  QAV_ENCODE_BAD_BITRATE = 2, /**< the bitrate is not one of Layer II */
  QAV_ENCODE_NO_MEMORY = 8    /**< out of memory */
};

/** Values of QAV_ITEM_IN_FORMAT and QAV_ITEM_OUT_FORMAT. */
enum {
  QAV_FORMAT_PCM = 0,   /**< linear PCM: signed 16-bit, or unsigned 8-bit input with QAV_ITEM_INPUT_8BIT */
  QAV_FORMAT_MPEG = 1,  /**< input: an MPEG audio stream, Layer I or II */
  QAV_FORMAT_LAYER2 = 2 /**< output: an MPEG-1 Layer II stream */
};

/** Configuration items; "set" gives the values QAV_setConfigure() takes, the others can only be read. Unset is 0. */
enum {
  QAV_ITEM_IN_FREQ_HZ = 1,  /**< set any; input sampling rate in Hz; decoding: the stream's rate once it is known */
  QAV_ITEM_OUT_FREQ_HZ = 2, /**< set any; output sampling rate in Hz; encoding: 0 means the input's */
  QAV_ITEM_KBPS = 3,        /**< set any; bitrate of the encoded stream in kbit/s, all channels; 0 means 128 */
  QAV_ITEM_CHANNELS = 4,    /**< set 1 or 2; encoding: unset means 2; decoding: the stream's once it is known */
  QAV_ITEM_IN_FORMAT = 5,   /**< set QAV_FORMAT_... */
  QAV_ITEM_OUT_FORMAT = 6,  /**< set QAV_FORMAT_... */
  QAV_ITEM_EMPHASIS = 7,    /**< set 0, 1 or 3; header field of the encoded frames */
  QAV_ITEM_COPYRIGHT = 8,   /**< set 0 or 1; header bit of the encoded frames */
  QAV_ITEM_ORIGINAL = 9,    /**< set 0 or 1; header bit of the encoded frames, 1 marks an original */
  QAV_ITEM_ERROR_PROTECTION = 10, /**< set 0 or 1; 1 writes a check word into every encoded frame */
  QAV_ITEM_FRAME_COUNT = 11,      /**< frames decoded, or calls made to the frame encoder */
  QAV_ITEM_BUFFER_SIZE = 12, /**< set 1 .. 2^31 - 1; bytes one QAV_convert() call may pass; detection raises it to the
                                  minimum of the conversion */
  QAV_ITEM_INPUT_8BIT = 13,  /**< set 0 or 1; 1: input bytes are unsigned 8-bit samples, widened to 16 bits */
  QAV_ITEM_LPF_LEVEL = 14,   /**< set 0 .. 7; low-pass filter for 8-bit input: 0 off; 1 .. 7 cut off at 0.24, 0.23,
                                  0.22, 0.20, 0.15, 0.12, 0.10 times the input rate */
  QAV_ITEM_LOSSES = 15,      /**< decoding: QAV_LOSS_... chosen by the third argument of QAV_getConfigure() */
  QAV_ITEM_VERSION = 16,     /**< QAV_VERSION of the library; can be read in any state, also from a null handle */
  QAV_ITEM_BYTE_SWAP = 17    /**< set 0 or 1; 1: the encoder swaps the two bytes of every stereo input sample */
};

/** The third argument of QAV_getConfigure() for QAV_ITEM_LOSSES: a selector in the pointer's place. */
#define QAV_LOSS_SKIPPED_BYTES ((uint32_t *)0) /**< bytes thrown away between frames, plus those of refused frames */
#define QAV_LOSS_BAD_FRAMES ((uint32_t *)1)    /**< headers rejected where one was due, plus frames refused */

/* --------------------------------------------------------------------------------------------------- converter ---- */

/** Create a converter with no item set.
 *
 *  @param out  receives the handle, owned by the caller until QAV_deleteHandle(); null on failure; not null itself
 *  @return QAV_OK; QAV_NO_MEMORY */
QAV_API uint32_t QAV_createHandle(QAV_Handle **out);

/** Set one configuration item; the enum above lists the values each takes. A refused value leaves the old one.
 *
 *  Once QAV_detectConfigure() has prepared a conversion to Layer II, every call is refused until
 *  QAV_releaseConfigure(). When decoding or resampling, items can still be written after detection; leave those alone
 *  that QAV_convert() uses (8-bit input, filter level, channels, buffer size).
 *
 *  @param h      the converter
 *  @param item   QAV_ITEM_...
 *  @param value  the new value
 *  @return QAV_OK; QAV_BAD_VALUE for an unknown or read-only item, a value out of range, or an encoder already
 *          prepared; QAV_NO_MEMORY for a null handle */
QAV_API uint32_t QAV_setConfigure(QAV_Handle *h, uint32_t item, uint32_t value);

/** Check the items, fill in the defaults and build what the conversion needs: PCM to Layer II encodes, MPEG to PCM
 *  decodes, PCM to PCM resamples (or copies, at equal rates).
 *
 *  Encoding takes any input rate from 1/24 to 4 times the stream's rate; two channels may use every Layer II bitrate,
 *  one channel those that are half of a listed one and listed themselves (32, 48, 56, 64, 80, 96, 112, 128, 160, 192).
 *  Resampling takes 1 or 2 channels and input rates of 4000 to 96000 Hz. Decoding needs equal rate items, normally both
 *  unset.
 *
 *  On failure the items stay as they are, defaults that were already filled in included; call QAV_releaseConfigure()
 *  and set them afresh.
 *
 *  @param h  a converter that has not been detected since it was created or released
 *  @return QAV_OK; QAV_BAD_CONVERSION for a pair of formats that is not converted, or unequal rates when decoding;
 *          QAV_BAD_RATE when encoding from 0 Hz or to a rate other than 32000, 44100 and 48000 Hz; QAV_BAD_VALUE for
 *          channels, bitrates or rates that cannot be combined; QAV_NO_MEMORY when the area for 8-bit input could not
 *          be allocated (everything is released then); QAV_BAD_STATE for a null or already detected handle, or when a
 *          part could not be built */
QAV_API uint32_t QAV_detectConfigure(QAV_Handle *h);

/** Read one configuration item or counter.
 *
 *  @param h       the converter, detected; QAV_ITEM_VERSION also takes one in any state, or null
 *  @param item    QAV_ITEM_...
 *  @param value   receives the value. For QAV_ITEM_LOSSES it is no pointer but a selector, QAV_LOSS_..., never followed
 *  @param value2  receives the count of QAV_ITEM_LOSSES; otherwise unused and may be null
 *  @return QAV_OK; QAV_BAD_STATE for a null or undetected handle; QAV_BAD_VALUE for an unknown item or selector */
QAV_API uint32_t QAV_getConfigure(QAV_Handle *h, uint32_t item, uint32_t *value, uint32_t *value2);

/** Convert one block; 0 bytes mark the end of the stream.
 *
 *  Blocks may be cut anywhere, inside samples and frames; the output does not depend on the cuts. (Resampling alone
 *  needs whole sample frames: bytes beyond the last whole one are dropped.)
 *
 *  - Encoding: every complete run of 1152 sample frames becomes one frame. The end call encodes what is left, padded
 *    with silence. The last 481 sample frames only come out of a decoder when silence is fed behind them.
 *  - Decoding: every complete frame becomes PCM. Bytes between frames and frames that cannot be decoded are passed over
 *    and counted (QAV_ITEM_LOSSES); the hunt for the next frame wants the first frame's bitrate and sampling rate. The
 *    end call drops an incomplete frame.
 *  - Resampling: linear interpolation; the end call does nothing and leaves `*outBytes` as it is.
 *
 *  8-bit input is one byte a sample, 128 is silence; half the buffer size is the limit for it.
 *
 *  @param h         a detected converter
 *  @param in        `inBytes` bytes, of any alignment; may be null when `inBytes` is 0
 *  @param inBytes   0 .. buffer size (resampling 16-bit input: no limit)
 *  @param out       room for what the block can yield: QAV_DECODE_OUT_BYTES(), QAV_ENCODE_OUT_BYTES(); resampling, two
 *                   sample frames more than the ratio gives; of any alignment
 *  @param outBytes  receives the number of bytes written to `out`; untouched when the result is QAV_TOO_LONG
 *  @return QAV_OK, also when damaged input was passed over; QAV_TOO_LONG; QAV_BAD_STATE for a null or undetected handle
 *          or an inner failure; QAV_ENDED for a second short block when encoding. After QAV_BAD_STATE and QAV_ENDED
 *          from the encoder `*outBytes` counts the frames completed before */
QAV_API uint32_t QAV_convert(QAV_Handle *h, const uint8_t *in, uint32_t inBytes, uint8_t *out, uint32_t *outBytes);

/** Release everything the converter built and unset every item: the handle is as freshly created.
 *
 *  @param h  the converter in any state, or null
 *  @return QAV_OK always */
QAV_API uint32_t QAV_releaseConfigure(QAV_Handle *h);

/** Delete a converter in any state, with all that it built.
 *
 *  @param h  the converter; not used afterwards
 *  @return QAV_OK; QAV_BAD_STATE for null */
QAV_API uint32_t QAV_deleteHandle(QAV_Handle *h);

/* ----------------------------------------------------------------------------------------------------- decoder ---- */

/** Create a decoder for one stream, with no header parsed and silence behind it.
 *
 *  @param out  receives the session, owned by the caller until zo_mpeg_Decode1FrameTerm(); null on failure
 *  @return QAV_DECODE_OK; QAV_DECODE_NO_MEMORY */
QAV_API uint32_t zo_mpeg_Decode1FrameInit(DecoderSession **out);

/** Free a decoder.
 *
 *  @param s  the session, or null
 *  @return QAV_DECODE_OK always */
QAV_API uint32_t zo_mpeg_Decode1FrameTerm(DecoderSession *s);

/** Decode one frame, header included (ISO/IEC 11172-3 clause 2.4).
 *
 *  @param s          the session of the stream
 *  @param data       the frame; its first bytes are the header
 *  @param available  bytes readable at `data`; the frame may be shorter. Fewer than 4: nothing is read
 *  @param out        receives interleaved 16-bit PCM: 384 (Layer I) or 1152 (Layer II) sample frames; room for
 *                    QAV_MAX_FRAME_PCM_BYTES always suffices
 *  @param outBytes   receives the bytes written: 768 or 2304 times the channels; 0 on failure
 *  @param consumed   receives the frame's length, also when it was refused for what follows its header; else 0
 *  @return QAV_DECODE_OK; QAV_DECODE_REFUSED: bad header, check word mismatch (the session is as if the frame had not
 *          been offered), or the frame's bits run out (`out` and the session have advanced by the granules before);
 *          QAV_DECODE_INCOMPLETE: the frame is longer than `available`, or fewer than 4 bytes were given */
QAV_API uint32_t zo_mpeg_Decode1Frame(DecoderSession *s, const uint8_t *data, uint32_t available, int16_t *out,
                                      uint32_t *outBytes, uint32_t *consumed);

/** Decode the rest of a frame whose header NEB_mpeg_get1FrameSize() parsed last.
 *
 *  @param s           the session of the stream
 *  @param payload     the bytes after the header, check word included
 *  @param payloadLen  their number: the frame size less 4
 *  @param out         as for zo_mpeg_Decode1Frame()
 *  @param outBytes    receives the bytes written; 0 on failure, and when no header has been parsed yet
 *  @return QAV_DECODE_OK; QAV_DECODE_REFUSED as for zo_mpeg_Decode1Frame() */
QAV_API uint32_t zo_mpeg_Decode1FrameWithoutHeader(DecoderSession *s, const uint8_t *payload, uint32_t payloadLen,
                                                   int16_t *out, uint32_t *outBytes);

/* ------------------------------------------------------------------------------------------ header, check word ---- */

/** Parse a frame header into the session (ISO/IEC 11172-3 clause 2.4.1.3, ISO/IEC 13818-3 clause 2.4.1).
 *
 *  Refused: a sync word other than 0xFFF, Layer III and the reserved layer, free format and bitrate index 15, sampling
 *  index 3. A refused header may leave some of its fields in the session; rate, bitrate, channels and what is derived
 *  from them stay those of the last accepted header.
 *
 *  @param header   4 bytes
 *  @param session  receives the header
 *  @return the length in bytes of the whole frame, header included, 32 .. QAV_MAX_FRAME_BYTES; -1 when refused */
QAV_API int32_t NEB_mpeg_get1FrameSize(const uint8_t *header, DecoderSession *session);

/** The sampling rate in Hz of the last accepted header; 0 before any. @param s the session, not null */
QAV_API uint32_t NEB_mpeg_getFreqHz(const DecoderSession *s);

/** The channels, 1 or 2, of the last accepted header; 0 before any. @param s the session, not null */
QAV_API uint32_t NEB_mpeg_getChannel(const DecoderSession *s);

/** The bitrate in kbit/s of the last accepted header; 0 before any. @param s the session, not null */
QAV_API uint32_t NEB_mpeg_getKbps(const DecoderSession *s);

/** Derive `sblimit`, `jsbound` and, for Layer II, `allocTable` (ISO/IEC 11172-3 Table B.2, ISO/IEC 13818-3 Table B.1).
 *
 *  @param fp  with `layer`, `id`, `freqHz`, `kbps`, `channels`, `mode` and `modeExt` set; Layer I leaves
 *             `allocTable` */
QAV_API void neb_hdr_to_frps(FrameParams *fp);

/** Compute the check word of a Layer I frame (ISO/IEC 11172-3 clause 2.4.3.1).
 *
 *  @param fp          the header
 *  @param allocation  the allocation of each channel and subband, 0 .. 15
 *  @param crc         receives the check word, 0 .. 65535 */
QAV_API void neb_I_CRC_calc(const FrameParams *fp, const uint32_t allocation[2][32], uint32_t *crc);

/** Compute the check word of a Layer II frame (ISO/IEC 11172-3 clause 2.4.3.1).
 *
 *  @param fp          the header, derived by neb_hdr_to_frps()
 *  @param allocation  the allocation index of each channel and subband; both channels' where they share it
 *  @param scfsi       the scale factor selection information, 0 .. 3; read where the allocation is not 0
 *  @param crc         receives the check word, 0 .. 65535 */
QAV_API void neb_II_CRC_calc(const FrameParams *fp, const uint32_t allocation[2][32], const uint32_t scfsi[2][32],
                             uint32_t *crc);

/* ----------------------------------------------------------------------------------------------------- encoder ---- */

/** Create a Layer II encoder for one stream.
 *
 *  @param session         receives the session, owned by the caller until zo_mpeg_Encode1FrameTerm(); null on failure
 *  @param samplingRateHz  32000, 44100 or 48000
 *  @param bitrateKbps     32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320 or 384, for all channels together
 *  @param channels        1 or 2
 *  @param options         five words: emphasis 0 .. 3; copyright 0 or 1; original 0 or 1; not 0 writes check words; not
 *                         0 swaps the bytes of stereo input samples. Null: 0, 0, 0, check words, no swap
 *  @return QAV_ENCODE_OK; QAV_ENCODE_BAD_RATE; QAV_ENCODE_BAD_BITRATE; QAV_ENCODE_NO_MEMORY */
QAV_API uint32_t zo_mpeg_Encode1FrameInit(EncoderSession **session, uint32_t samplingRateHz, uint32_t bitrateKbps,
                                          uint32_t channels, const uint32_t *options);

/** Free an encoder.
 *
 *  @param session  the session, or null
 *  @return QAV_ENCODE_OK always */
QAV_API uint32_t zo_mpeg_Encode1FrameTerm(EncoderSession *session);

/** Encode one frame (ISO/IEC 11172-3 Annex C, psychoacoustic model 2 of Annex D).
 *
 *  @param session            the session of the stream
 *  @param pcm                interleaved samples, `samplesPerChannel` times the channels; aligned for int16_t
 *  @param samplesPerChannel  1 .. 1152; fewer than 1152 are padded with silence, more than 1152 are not read
 *  @param out                room for QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES
 *  @param outBytes           receives the frame's length in bytes
 *  @return 0; -1 when `samplesPerChannel` is 0: `*outBytes` is 0 and nothing but `out[0]`, cleared, is written */
QAV_API int32_t zo_mpeg_Encode1Frame(EncoderSession *session, const int16_t *pcm, uint32_t samplesPerChannel,
                                     uint8_t *out, uint32_t *outBytes);

/* -------------------------------------------------------------------------------------------- stream utilities ---- */

/** Create a sampling-rate converter for one stream: linear interpolation between neighbouring sample frames.
 *
 *  @param out          receives the state, owned by the caller until NEB_freqChangeTerm(); null on failure
 *  @param inFreqHz     input rate in Hz
 *  @param outFreqHz    output rate in Hz; nothing comes out when a rate is 0
 *  @param channels     2: interleaved stereo; any other value: one channel
 *  @param totalFrames  sample frames of the whole stream, so that its last one is put out too; 0: unknown
 *  @return 0; 1 out of memory */
QAV_API int32_t NEB_freqChangeInit(FreqChangeState **out, uint32_t inFreqHz, uint32_t outFreqHz, uint32_t channels,
                                   uint32_t totalFrames);

/** Convert one block. The output does not depend on how a stream is cut into blocks; an output frame appears as soon as
 *  the two input frames around it are known.
 *
 *  @param s          the state of the stream
 *  @param in         `frames` sample frames, aligned for int16_t; not read when `frames` is 0
 *  @param frames     sample frames of the block
 *  @param out        room for `frames` times the output rate over the input rate, plus 2, sample frames
 *  @param outFrames  receives the sample frames written
 *  @return 0 always */
QAV_API int32_t NEB_freqChange(FreqChangeState *s, const int16_t *in, uint32_t frames, int16_t *out,
                               uint32_t *outFrames);

/** Free a sampling-rate converter. @param s the state, or null @return 0 always */
QAV_API int32_t NEB_freqChangeTerm(FreqChangeState *s);

/** Create a byte queue. Per block of the caller: lock it, take units, unlock.
 *
 *  @param out       receives the queue, owned by the caller until NEB_bufferingTerm(); null on failure
 *  @param capacity  the longest block that may be locked, in bytes; the queue holds 2 * capacity + 3 bytes
 *  @return 0; 1 out of memory */
QAV_API int32_t NEB_bufferingInit(ByteFifo **out, uint32_t capacity);

/** Lend the queue a block: its bytes follow those still queued. They are not copied before NEB_bufferingUnlock().
 *
 *  @param f     the queue, with no block locked
 *  @param data  the block; must stay unchanged until the unlock; may be null when `len` is 0
 *  @param len   its length in bytes
 *  @return 0; 1 when the block is longer than the capacity, or could not be kept at the unlock: nothing is locked */
QAV_API int32_t NEB_bufferingLock(ByteFifo *f, const uint8_t *data, uint32_t len);

/** Take up to `n` bytes from the front as one contiguous unit: in place where it lies whole in the block or in the
 *  queue, otherwise assembled in the queue's memory.
 *
 *  @param f     the queue
 *  @param n     bytes wanted
 *  @param unit  receives the unit's start, valid until the next Get, Lock or Unlock
 *  @return the bytes handed out and consumed: `n`, or all there are when they are fewer */
QAV_API int32_t NEB_bufferingGet(ByteFifo *f, uint32_t n, const uint8_t **unit);

/** The bytes that can be taken now. @param f the queue */
QAV_API int32_t NEB_bufferingGetSize(const ByteFifo *f);

/** Give the block back: what was not taken is copied into the queue. @param f the queue @return 0 always */
QAV_API int32_t NEB_bufferingUnlock(ByteFifo *f);

/** Free a queue. @param f the queue, or null @return 0 always */
QAV_API int32_t NEB_bufferingTerm(ByteFifo *f);

/* ------------------------------------------------------------------------------------------- signal processing ---- */

/** Forward Fourier transform of real data, in place, single precision, not scaled.
 *
 *  With R[k] = sum of a[j] cos(2 pi j k / n) and I[k] = sum of a[j] sin(2 pi j k / n) over j = 0 .. n - 1, the result
 *  is a[2k] = R[k] and a[2k + 1] = I[k] for 0 < k < n/2, a[0] = R[0], a[1] = R[n/2]. Mind the sign of I.
 *
 *  @param n     length, a power of two, at least 4; otherwise nothing is done
 *  @param isgn  not negative: transform; negative: only build the tables, `a` is left alone
 *  @param a     n values
 *  @param ip    work area of 2 + sqrt(n/2) integers (rounded down to a power of two: 18 for n = 1024); ip[0] and ip[1]
 *               must be 0 before the first call. What it then holds suits this CPU: build it anew on another machine
 *  @param w     table of n/2 values, built at the first call and whenever n grows; kept by the caller with `ip` */
QAV_API void neb_rdft(int32_t n, int32_t isgn, float *a, int32_t *ip, float *w);

/** Create the state of psychoacoustic model 2 (ISO/IEC 11172-3 Annex D) for one stream.
 *
 *  @param fp  `samplingIndex` 0, 1, 2 and the matching `freqHz` 44100, 48000, 32000 are read
 *  @return the state, one block that the caller releases with free(); null when out of memory, and for other values */
QAV_API PsychoState *neb_psycho_analInit(const FrameParams *fp);

/** Analyse one channel of one Layer II frame; channel 0 before channel 1.
 *
 *  @param samples  1152 samples of the channel, in time order
 *  @param ch       0 or 1
 *  @param smr      receives 32 signal-to-mask ratios in dB, one per subband; digital silence gives -379.298
 *  @param state    the state of the stream */
QAV_API void neb_psycho_anal(const int16_t *samples, uint32_t ch, float *smr, PsychoState *state);

#ifdef __cplusplus
}
#endif

#endif /* QAV_H */
