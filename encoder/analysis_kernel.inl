// The analysis filterbank for one CPU level. Included once per level, with
//
//   QAV_LEVEL   the name space of the level
//   QAV_TARGET  the attribute of its functions
//   QAV_LANES   32-bit values in a vector

namespace QAV_LEVEL {

template <typename V, typename T>
QAV_TARGET NEB_INLINE V load(const T *p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

template <typename V, typename T>
QAV_TARGET NEB_INLINE void store(T *p, V v) {
  std::memcpy(p, &v, sizeof v);
}

// Four columns of pairs, from six blocks of 32 samples.
QAV_TARGET NEB_INLINE void pairBlocks(const int16_t *blocks, int32_t *column) {
  using Shorts = Lanes<int16_t, 8>;
  using Ints = Lanes<int32_t, 4>;
  for (int r = 0; r < 32; r += 8) {
    Ints pairs[4][2];  // of each column, r .. r + 3 and r + 4 .. r + 7
    for (int b = 0; b < 4; ++b) {
      const Shorts earlier = load<Shorts>(blocks + 32 * b + r);
      const Shorts later = load<Shorts>(blocks + 32 * (b + 2) + r);
      pairs[b][0] = Ints(__builtin_shufflevector(earlier, later, 0, 8, 1, 9, 2, 10, 3, 11));
      pairs[b][1] = Ints(__builtin_shufflevector(earlier, later, 4, 12, 5, 13, 6, 14, 7, 15));
    }
    for (int half = 0; half < 2; ++half) {
      const Ints a = __builtin_shufflevector(pairs[0][half], pairs[1][half], 0, 4, 1, 5);
      const Ints b = __builtin_shufflevector(pairs[2][half], pairs[3][half], 0, 4, 1, 5);
      const Ints c = __builtin_shufflevector(pairs[0][half], pairs[1][half], 2, 6, 3, 7);
      const Ints d = __builtin_shufflevector(pairs[2][half], pairs[3][half], 2, 6, 3, 7);
      int32_t *const row = column + (r + 4 * half) * kColumns;
      store(row, __builtin_shufflevector(a, b, 0, 1, 4, 5));
      store(row + kColumns, __builtin_shufflevector(a, b, 2, 3, 6, 7));
      store(row + 2 * kColumns, __builtin_shufflevector(c, d, 0, 1, 4, 5));
      store(row + 3 * kColumns, __builtin_shufflevector(c, d, 2, 3, 6, 7));
    }
  }
}

template <int N>
QAV_TARGET NEB_INLINE Lanes<int32_t, N> product(const int32_t *pairs, TapPair taps) {
  using Shorts = Lanes<int16_t, 2 * N>;
  Lanes<int32_t, N> sum;
  sumPairProducts(sum, load<Shorts>(pairs), Shorts(Lanes<int32_t, N>{} + std::bit_cast<int32_t>(taps)));
  return sum;
}

template <int N>
QAV_TARGET NEB_INLINE void windowTimes(const std::array<PartialSum, 2> &halves, const PairRows &rows, int t,
                                       int32_t *fine, int32_t *coarse) {
  Lanes<int32_t, N> fineSum{}, coarseSum{};
  for (const PartialSum &y : halves) {
    const int32_t *const newest = rows[y.row] + t + y.column;
    for (unsigned n = 0; n < kTaps / 2; ++n) fineSum += product<N>(newest - 4 * int(n), y.fine[n]);
    coarseSum += product<N>(newest - 6, y.coarse);
  }
  store(fine + t, fineSum);
  store(coarse + t, coarseSum);
}

template <int N>
QAV_TARGET NEB_INLINE void transformTimes(const FoldedFrame &folded, int t, SubbandFrame &out) {
  using Doubles = Lanes<double, N>;
  Doubles x[32], y[32];
  for (int m = 0; m < 32; ++m) {
    Doubles coarse, fine;
    loadAsDoubles(coarse, folded.coarse[m] + t);
    loadAsDoubles(fine, folded.fine[m] + t);
    x[m] = coarse * (kCoarseUnit * kFineUnit) + fine * kFineUnit;
  }
  dct3<32>(x, y);
  for (int k = 0; k < 32; ++k) storeAsFloats(out[k] + t, y[k]);
}

QAV_TARGET inline void pairFrame(int16_t history[kFilterHistory], const int16_t *pcm, PairRows &rows) {
  int16_t samples[32 * (kColumns + 2)];
  std::memcpy(samples, history, sizeof(int16_t) * kFilterHistory);
  std::memcpy(samples + kFilterHistory, pcm, sizeof(int16_t) * kChannelSamples);
  std::memset(samples + 32 * kColumns, 0, sizeof(int16_t) * 64);  // the last two columns have no later sample
  std::memcpy(history, pcm + kChannelSamples - kFilterHistory, sizeof(int16_t) * kFilterHistory);
  for (int b = 0; b < kColumns; b += 4) pairBlocks(samples + 32 * b, &rows[0][b]);
}

QAV_TARGET inline void window(const PairRows &rows, FoldedFrame &folded) {
  constexpr int kRest = kTimes % QAV_LANES;
  for (int m = 0; m < 32; ++m) {
    const std::array<PartialSum, 2> &halves = ana_winTbl[unsigned(m)];
    for (int t = 0; t < kTimes - kRest; t += QAV_LANES)
      windowTimes<QAV_LANES>(halves, rows, t, folded.fine[m], folded.coarse[m]);
    if constexpr (kRest != 0) windowTimes<kRest>(halves, rows, kTimes - kRest, folded.fine[m], folded.coarse[m]);
  }
}

QAV_TARGET inline void transform(const FoldedFrame &folded, SubbandFrame &out) {
  constexpr int kDoubles = QAV_LANES / 2;
  constexpr int kRest = kTimes % kDoubles;
  for (int t = 0; t < kTimes - kRest; t += kDoubles) transformTimes<kDoubles>(folded, t, out);
  if constexpr (kRest != 0) transformTimes<kRest>(folded, kTimes - kRest, out);
}

QAV_TARGET void analyse(int16_t filterHist[2][kFilterHistory], const int16_t *pcm, uint32_t channel,
                        SubbandFrame &out) {
  PairRows rows;
  FoldedFrame folded;
  pairFrame(filterHist[channel], pcm, rows);
  window(rows, folded);
  transform(folded, out);
}

}  // namespace QAV_LEVEL

#undef QAV_LEVEL
#undef QAV_TARGET
#undef QAV_LANES
