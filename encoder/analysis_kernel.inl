// The analysis filterbank for one CPU level. Included once per level, with
//
//   QAV_LEVEL   the name space of the level
//   QAV_TARGET  the attribute of its functions
//   QAV_LANES   32-bit values in a vector, 4, 8 or 16

namespace QAV_LEVEL {

template <typename V, typename T>
QAV_TARGET NEB_INLINE V load(const T *p) {
  typedef V Unaligned __attribute__((aligned(alignof(T)), may_alias));
  return *reinterpret_cast<const Unaligned *>(p);
}

template <typename V, typename T>
QAV_TARGET NEB_INLINE void store(T *p, V v) {
  std::memcpy(p, &v, sizeof v);
}

// Of rows r, r + 1, ... the pairs b, b + 3, b + 6 and b + 9, into the four places that begin at `place`. Eight rows for each
// 128 bits of a vector.
QAV_TARGET NEB_INLINE void pairBlocks(const int16_t *samples, int b, int r, int place, PairRows &rows) {
  constexpr int kWidth = QAV_LANES == 4 ? 1 : 2;
  using Shorts = Lanes<int16_t, 8 * kWidth>;
  using Ints = Lanes<int32_t, 4 * kWidth>;
  using Quad = Lanes<int32_t, 4>;
  Ints lower[4], upper[4];  // of each b, rows 0 .. 3 and 4 .. 7 of every eight
  for (int j = 0; j < 4; ++j) {
    const int16_t *const block = samples + 32 * (b + 3 * j) + r;
    Shorts low, high;
    interleave(low, high, load<Shorts>(block), load<Shorts>(block + 64));
    lower[j] = Ints(low);
    upper[j] = Ints(high);
  }
  transpose(lower);
  transpose(upper);
  for (int j = 0; j < 4; ++j) {
    Quad quads[2][kWidth];
    std::memcpy(quads[0], &lower[j], sizeof lower[j]);
    std::memcpy(quads[1], &upper[j], sizeof upper[j]);
    for (int eight = 0; eight < kWidth; ++eight)
      for (int half = 0; half < 2; ++half) store(rows.pairs[r + 8 * eight + 4 * half + j] + place, quads[half][eight]);
  }
}

// An F, or part of it, of N of the twelve times that stand side by side.
template <int N>
struct Sum {
  Lanes<int32_t, N> fine, coarse;
};

// The taps of one Y in every lane.
template <int N>
struct Taps {
  Lanes<int32_t, N> fine[kTaps / 2], coarse;
};

template <int N>
QAV_TARGET NEB_INLINE Lanes<int32_t, N> broadcast(TapPair taps) {
  return Lanes<int32_t, N>{} + std::bit_cast<int32_t>(taps);
}

template <int N>
QAV_TARGET NEB_INLINE Taps<N> broadcast(const PartialSum &y) {
  return {{broadcast<N>(y.fine[0]), broadcast<N>(y.fine[1]), broadcast<N>(y.fine[2]), broadcast<N>(y.fine[3])},
          broadcast<N>(y.coarse)};
}

// Adds the pairs to one Y under the taps that lie Distance pairs behind its newest one, if there are any.
template <int N, int Distance>
QAV_TARGET NEB_INLINE void addTaps(Sum<N> &sum, const Lanes<int16_t, 2 * N> &pairs, const Taps<N> &taps) {
  using Shorts = Lanes<int16_t, 2 * N>;
  if constexpr (Distance >= 0 && Distance % 4 == 0 && Distance / 4 < kTaps / 2)
    addPairProducts(sum.fine, pairs, Shorts(taps.fine[Distance / 4]));
  if constexpr (Distance == 6) addPairProducts(sum.coarse, pairs, Shorts(taps.coarse));
}

// Adds the pairs `Pair`, `Pair` + 3, ... to the sums of all times under whose windows they lie: early[i] and late[i] are of
// the times i, i + 3, ...
template <int N, int Pair>
QAV_TARGET NEB_INLINE void addPair(const int32_t *row, const Taps<N> &earlyTaps, const Taps<N> &lateTaps,
                                   Sum<N> early[3], Sum<N> late[3]) {
  const auto pairs = load<Lanes<int16_t, 2 * N>>(row + pairPlace(Pair));
  addTaps<N, kNewestPair - Pair>(early[0], pairs, earlyTaps);
  addTaps<N, kNewestPair - Pair + 1>(early[1], pairs, earlyTaps);
  addTaps<N, kNewestPair - Pair + 2>(early[2], pairs, earlyTaps);
  addTaps<N, kNewestPair - 1 - Pair>(late[0], pairs, lateTaps);
  addTaps<N, kNewestPair - 1 - Pair + 1>(late[1], pairs, lateTaps);
  addTaps<N, kNewestPair - 1 - Pair + 2>(late[2], pairs, lateTaps);
}

template <int N, int... Pairs>
QAV_TARGET NEB_INLINE void addPairs(std::integer_sequence<int, Pairs...>, const int32_t *row, const RowWindow &window,
                                    Sum<N> early[3], Sum<N> late[3]) {
  const Taps<N> earlyTaps = broadcast<N>(window.early), lateTaps = broadcast<N>(window.late);
  (addPair<N, Pairs>(row, earlyTaps, lateTaps, early, late), ...);
}

// Adds both Y of row r to the sums; the row begins at the first of their times.
template <int N>
QAV_TARGET NEB_INLINE void addRow(const PairRows &rows, int r, int granule, Sum<N> early[3], Sum<N> late[3]) {
  addPairs<N>(std::make_integer_sequence<int, kNewestPair + 3>(), rows.pairs[r] + granule, ana_winTbl[unsigned(r)], early,
              late);
}

template <int N>
QAV_TARGET NEB_INLINE void storeSums(FoldedFrame &folded, int m, int granule, const Sum<N> sums[3]) {
  for (int time = 0; time < 3; ++time) {
    store(folded.fine[m] + time * int(kGranules) + granule, sums[time].fine);
    store(folded.coarse[m] + time * int(kGranules) + granule, sums[time].coarse);
  }
}

// All F of N times. Rows r and 30 - r make F[15 - r] of their early sums and F[17 + r] of their late ones. Rows 15 and 31
// have no partner: row 15 makes F[0], its late sum meeting the cosines that are 0, and row 31 makes F[16].
template <int N>
QAV_TARGET NEB_INLINE void windowTimes(const PairRows &rows, int granule, FoldedFrame &folded) {
  for (int r = 0; r < 15; ++r) {
    Sum<N> early[3] = {}, late[3] = {};
    addRow<N>(rows, r, granule, early, late);
    addRow<N>(rows, 30 - r, granule, early, late);
    storeSums<N>(folded, 15 - r, granule, early);
    storeSums<N>(folded, 17 + r, granule, late);
  }
  Sum<N> first[3] = {}, unused[3] = {}, both[3] = {};
  addRow<N>(rows, 15, granule, first, unused);
  addRow<N>(rows, 31, granule, both, both);
  storeSums<N>(folded, 0, granule, first);
  storeSums<N>(folded, 16, granule, both);
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

QAV_TARGET inline void pairFrame(const int16_t *samples, PairRows &rows) {
  constexpr int kLast = kPairs - 1;  // does not go into four
  constexpr int kRows = QAV_LANES == 4 ? 8 : 16;
  for (int place = 0; place < kPhaseLength - 1; place += 4)
    for (int phase = 0; phase < 3; ++phase)
      for (int r = 0; r < 32; r += kRows)
        pairBlocks(samples, 3 * place + phase, r, phase * kPhaseLength + place, rows);
  for (int r = 0; r < 32; ++r) {
    const TapPair last = {samples[32 * kLast + r], samples[32 * (kLast + 2) + r]};
    rows.pairs[r][pairPlace(kLast)] = std::bit_cast<int32_t>(last);
  }
  std::memset(rows.behind, 0, sizeof rows.behind);
}

QAV_TARGET inline void window(const PairRows &rows, FoldedFrame &folded) {
  if constexpr (QAV_LANES == 16) {
    windowTimes<16>(rows, 0, folded);  // the last four of sixteen lanes are overwritten by what belongs there
  } else if constexpr (QAV_LANES == 8) {
    windowTimes<8>(rows, 0, folded);
    windowTimes<4>(rows, 8, folded);
  } else {
    for (int granule = 0; granule < int(kGranules); granule += 4) windowTimes<4>(rows, granule, folded);
  }
}

QAV_TARGET inline void transform(const FoldedFrame &folded, SubbandFrame &out) {
  constexpr int kDoubles = QAV_LANES / 2;
  constexpr int kRest = kTimes % kDoubles;
  for (int t = 0; t < kTimes - kRest; t += kDoubles) transformTimes<kDoubles>(folded, t, out);
  if constexpr (kRest != 0) transformTimes<kRest>(folded, kTimes - kRest, out);
}

QAV_TARGET void analyse(const int16_t *samples, SubbandFrame &out) {
  PairRows rows;
  FoldedFrame folded;
  pairFrame(samples, rows);
  window(rows, folded);
  transform(folded, out);
}

}  // namespace QAV_LEVEL

#undef QAV_LEVEL
#undef QAV_TARGET
#undef QAV_LANES
