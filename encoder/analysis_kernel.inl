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

// Of eight rows the pairs b, b + 3, b + 6 and b + 9.
QAV_TARGET NEB_INLINE void pairBlocks(const int16_t *samples, int b, int r, PairRows &rows) {
  using Shorts = Lanes<int16_t, 8>;
  using Ints = Lanes<int32_t, 4>;
  Ints pairs[4][2];  // of each b, rows r .. r + 3 and r + 4 .. r + 7
  for (int j = 0; j < 4; ++j) {
    const Shorts earlier = load<Shorts>(samples + 32 * (b + 3 * j) + r);
    const Shorts later = load<Shorts>(samples + 32 * (b + 3 * j + 2) + r);
    pairs[j][0] = Ints(__builtin_shufflevector(earlier, later, 0, 8, 1, 9, 2, 10, 3, 11));
    pairs[j][1] = Ints(__builtin_shufflevector(earlier, later, 4, 12, 5, 13, 6, 14, 7, 15));
  }
  for (int half = 0; half < 2; ++half) {
    const Ints a = __builtin_shufflevector(pairs[0][half], pairs[1][half], 0, 4, 1, 5);
    const Ints c = __builtin_shufflevector(pairs[0][half], pairs[1][half], 2, 6, 3, 7);
    const Ints d = __builtin_shufflevector(pairs[2][half], pairs[3][half], 0, 4, 1, 5);
    const Ints e = __builtin_shufflevector(pairs[2][half], pairs[3][half], 2, 6, 3, 7);
    const int row = r + 4 * half, place = pairPlace(b);
    store(rows.pairs[row] + place, __builtin_shufflevector(a, d, 0, 1, 4, 5));
    store(rows.pairs[row + 1] + place, __builtin_shufflevector(a, d, 2, 3, 6, 7));
    store(rows.pairs[row + 2] + place, __builtin_shufflevector(c, e, 0, 1, 4, 5));
    store(rows.pairs[row + 3] + place, __builtin_shufflevector(c, e, 2, 3, 6, 7));
  }
}

template <int N>
QAV_TARGET NEB_INLINE Lanes<int32_t, N> product(const int32_t *pairs, TapPair taps) {
  using Shorts = Lanes<int16_t, 2 * N>;
  Lanes<int32_t, N> sum;
  sumPairProducts(sum, load<Shorts>(pairs), Shorts(Lanes<int32_t, N>{} + std::bit_cast<int32_t>(taps)));
  return sum;
}

// Adds one Y of the times `first`, `first` + 3, ...
template <int N>
QAV_TARGET NEB_INLINE void addPartialSum(const PartialSum &y, const int32_t *row, int first, Lanes<int32_t, N> &fine,
                                         Lanes<int32_t, N> &coarse) {
  for (int n = 0; n < kTaps / 2; ++n) fine += product<N>(row + pairPlace(first - 4 * n), y.fine[unsigned(n)]);
  coarse += product<N>(row + pairPlace(first - 6), y.coarse);
}

// F[m] of N of the twelve times that stand side by side. Upper, Lower: whether its halves have i >= 32.
template <int N, int Upper, int Lower>
QAV_TARGET NEB_INLINE void windowTimes(const PairRows &rows, int m, int time, int granule, FoldedFrame &folded) {
  Lanes<int32_t, N> fine{}, coarse{};
  const auto &[upper, lower] = ana_winTbl[unsigned(m)];
  addPartialSum<N>(upper, rows.pairs[upper.row] + granule, time + kNewestPair[Upper], fine, coarse);
  addPartialSum<N>(lower, rows.pairs[lower.row] + granule, time + kNewestPair[Lower], fine, coarse);
  const int place = time * int(kGranules) + granule;
  store(folded.fine[m] + place, fine);
  store(folded.coarse[m] + place, coarse);
}

template <int Upper, int Lower>
QAV_TARGET NEB_INLINE void windowRow(const PairRows &rows, int m, FoldedFrame &folded) {
  for (int time = 0; time < 3; ++time) {
    if constexpr (QAV_LANES == 8) {
      windowTimes<8, Upper, Lower>(rows, m, time, 0, folded);
      windowTimes<4, Upper, Lower>(rows, m, time, 8, folded);
    } else {
      // Sixteen lanes: the last four are overwritten by what belongs there.
      for (int granule = 0; granule < int(kGranules); granule += QAV_LANES)
        windowTimes<QAV_LANES, Upper, Lower>(rows, m, time, granule, folded);
    }
  }
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
  int16_t samples[32 * kBlocks];
  std::memcpy(samples, history, sizeof(int16_t) * kFilterHistory);
  std::memcpy(samples + kFilterHistory, pcm, sizeof(int16_t) * kChannelSamples);
  std::memcpy(history, pcm + kChannelSamples - kFilterHistory, sizeof(int16_t) * kFilterHistory);

  constexpr int kLast = kPairs - 1;  // does not go into four
  for (int b = 0; b < kLast; b += 12)
    for (int phase = 0; phase < 3; ++phase)
      for (int r = 0; r < 32; r += 8) pairBlocks(samples, b + phase, r, rows);
  for (int r = 0; r < 32; ++r) {
    const TapPair last = {samples[32 * kLast + r], samples[32 * (kLast + 2) + r]};
    rows.pairs[r][pairPlace(kLast)] = std::bit_cast<int32_t>(last);
  }
  std::memset(rows.behind, 0, sizeof rows.behind);
}

QAV_TARGET inline void window(const PairRows &rows, FoldedFrame &folded) {
  for (int m = 0; m < 16; ++m) windowRow<0, 0>(rows, m, folded);
  windowRow<1, 0>(rows, 16, folded);
  for (int m = 17; m < 32; ++m) windowRow<1, 1>(rows, m, folded);
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
