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

// Adds two taps of the pairs at `pairs`.
template <int N>
QAV_TARGET NEB_INLINE void addProduct(Lanes<int32_t, N> &sum, const int32_t *pairs, const Lanes<int32_t, N> &taps) {
  using Shorts = Lanes<int16_t, 2 * N>;
  addPairProducts(sum, load<Shorts>(pairs), Shorts(taps));
}

// Adds one Y to the sums of the times Time, Time + 3, ... for each Time; `row` begins at the first of them.
template <int N, int NewestPair, int... Times>
QAV_TARGET NEB_INLINE void add(Sum<N> sums[3], const Taps<N> &taps, const int32_t *row) {
  (addProduct<N>(sums[Times].fine, row + pairPlace(Times + NewestPair), taps.fine[0]), ...);
  (addProduct<N>(sums[Times].fine, row + pairPlace(Times + NewestPair - 4), taps.fine[1]), ...);
  (addProduct<N>(sums[Times].fine, row + pairPlace(Times + NewestPair - 8), taps.fine[2]), ...);
  (addProduct<N>(sums[Times].fine, row + pairPlace(Times + NewestPair - 12), taps.fine[3]), ...);
  (addProduct<N>(sums[Times].coarse, row + pairPlace(Times + NewestPair - 6), taps.coarse), ...);
}

template <int N, int... Times>
QAV_TARGET NEB_INLINE void storeSums(FoldedFrame &folded, int m, int granule, const Sum<N> sums[3]) {
  (store(folded.fine[m] + Times * int(kGranules) + granule, sums[Times].fine), ...);
  (store(folded.coarse[m] + Times * int(kGranules) + granule, sums[Times].coarse), ...);
}

// Two rows and their taps.
template <int N>
struct RowPair {
  const int32_t *rows[2];
  Taps<N> early[2], late[2];
};

template <int N>
QAV_TARGET NEB_INLINE RowPair<N> rowPair(const PairRows &rows, int r0, int r1) {
  const RowWindow &w0 = ana_winTbl[unsigned(r0)], &w1 = ana_winTbl[unsigned(r1)];
  return {{rows.pairs[r0], rows.pairs[r1]},
          {broadcast<N>(w0.early), broadcast<N>(w1.early)},
          {broadcast<N>(w0.late), broadcast<N>(w1.late)}};
}

// Rows r and 30 - r make F[15 - r] of their early sums and F[17 + r] of their late ones. Rows 15 and 31 have no partner: row
// 15 makes F[0], its late sum meeting the cosines that are 0, and row 31 makes F[16].
template <bool Partners, int N, int... Times>
QAV_TARGET NEB_INLINE void foldRows(const RowPair<N> &pair, int r, int granule, FoldedFrame &folded) {
  constexpr int kEarly = kNewestPair, kLate = kNewestPair - 1;
  Sum<N> a[3] = {}, b[3] = {};
  add<N, kEarly, Times...>(a, pair.early[0], pair.rows[0] + granule);
  add<N, kEarly, Times...>(Partners ? a : b, pair.early[1], pair.rows[1] + granule);
  add<N, kLate, Times...>(b, pair.late[1], pair.rows[1] + granule);
  if constexpr (Partners) add<N, kLate, Times...>(b, pair.late[0], pair.rows[0] + granule);
  storeSums<N, Times...>(folded, Partners ? 15 - r : 0, granule, a);
  storeSums<N, Times...>(folded, Partners ? 17 + r : 16, granule, b);
}

// All times of two rows.
template <bool Partners>
QAV_TARGET NEB_INLINE void foldRows(const PairRows &rows, int r0, int r1, FoldedFrame &folded) {
  const RowPair<QAV_LANES> pair = rowPair<QAV_LANES>(rows, r0, r1);
  if constexpr (QAV_LANES == 16) {
    // Registers enough for sums of all times at once. The last four of sixteen lanes are overwritten by what belongs there.
    foldRows<Partners, 16, 0, 1, 2>(pair, r0, 0, folded);
  } else if constexpr (QAV_LANES == 8) {
    foldRows<Partners, 8, 0>(pair, r0, 0, folded);
    foldRows<Partners, 8, 1>(pair, r0, 0, folded);
    foldRows<Partners, 8, 2>(pair, r0, 0, folded);
    const RowPair<4> narrow = rowPair<4>(rows, r0, r1);
    foldRows<Partners, 4, 0>(narrow, r0, 8, folded);
    foldRows<Partners, 4, 1>(narrow, r0, 8, folded);
    foldRows<Partners, 4, 2>(narrow, r0, 8, folded);
  } else {
    for (int granule = 0; granule < int(kGranules); granule += 4) {
      foldRows<Partners, 4, 0>(pair, r0, granule, folded);
      foldRows<Partners, 4, 1>(pair, r0, granule, folded);
      foldRows<Partners, 4, 2>(pair, r0, granule, folded);
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
  for (int r = 0; r < 15; ++r) foldRows<true>(rows, r, 30 - r, folded);
  foldRows<false>(rows, 15, 31, folded);
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
