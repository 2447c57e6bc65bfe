// Quantisation of one subband for one CPU level. Included once per level, with
//
//   QAV_LEVEL   the name space of the level
//   QAV_TARGET  the attribute of its functions
//   QAV_FUSED   1 where fusedProductPlusOne() is an instruction

namespace QAV_LEVEL {

template <int N>
QAV_TARGET NEB_INLINE void quantizeLanes(const float *x, const Lanes<float, N> &r, const Quantizer &quantizer,
                                         uint32_t *codes) {
  using Floats = Lanes<float, N>;
  using Ints = Lanes<int32_t, N>;
  Floats samples, v;
  std::memcpy(&samples, x, sizeof samples);
#if QAV_FUSED
  fusedProductPlusOne(v, samples, r);
#else
  productPlusOneByDoubles(v, samples, r);
#endif
  const Floats d = v * quantizer.a;
  const Ints notNegative = d >= 1.0f;  // a comparison that holds is -1
  const Floats one = Floats{} + 1.0f;
  const Floats fraction = d - Floats(Ints(one) & notNegative);
  Ints code;
  toInts(code, fraction * quantizer.scale);
  code |= notNegative & quantizer.sign;
  std::memcpy(codes, &code, sizeof code);
}

// `r` holds the reciprocal scale factor of each part.
QAV_TARGET NEB_INLINE void quantizeSubband(const float x[kSubbandSamples], const float r[kParts],
                                           const Quantizer &quantizer, uint32_t codes[kSubbandSamples]) {
#if QAV_FUSED
  const Lanes<float, 8> r01 = {r[0], r[0], r[0], r[0], r[1], r[1], r[1], r[1]};
  const Lanes<float, 4> r2 = Lanes<float, 4>{} + r[2];
  for (uint32_t i = 0; i < kSubbandSamples; i += kGranules) {
    quantizeLanes<8>(x + i, r01, quantizer, codes + i);
    quantizeLanes<4>(x + i + 8, r2, quantizer, codes + i + 8);
  }
#else
  for (uint32_t part = 0; part < kParts; ++part)
    for (uint32_t i = part * kPartGranules; i < kSubbandSamples; i += kGranules)
      quantizeLanes<4>(x + i, Lanes<float, 4>{} + r[part], quantizer, codes + i);
#endif
}

QAV_TARGET void quantize(const ScaleIndices scaleIndex[2], const SubbandFrame sbSample[2],
                         const uint32_t allocation[2][32], QuantizedFrame quantized[2], const FrameParams &frame) {
  for (int32_t ch = 0; ch < codedChannels(frame); ++ch)
    for (int32_t sb = 0; sb < frame.sblimit; ++sb) {
      if (allocation[ch][sb] == 0) continue;
      float r[kParts];
      for (uint32_t part = 0; part < kParts; ++part) r[part] = reciprocalScaleFactors[scaleIndex[ch][part][sb]];
      const Quantizer &quantizer = quantizers[frame.allocTable[sb][allocation[ch][sb]].quant];
      quantizeSubband(sbSample[ch][sb], r, quantizer, quantized[ch][sb]);
    }
}

}  // namespace QAV_LEVEL

#undef QAV_LEVEL
#undef QAV_TARGET
#undef QAV_FUSED
