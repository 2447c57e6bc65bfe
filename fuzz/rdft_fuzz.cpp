// The real FFT against a plain transform in double precision, for every length up to 65536, with fresh tables and with
// those of a longer transform, at every CPU level.
#include "include/qav.h"

#include <bit>
#include <cmath>
#include <complex>

#include "fuzz/fuzz.h"

using namespace qav::fuzz;

namespace {

using Spectrum = std::vector<std::complex<double>>;

constexpr size_t kLongest = 65536;

// exp(2 pi i k / kLongest)
const Spectrum &roots() {
  static const Spectrum table = [] {
    Spectrum t(kLongest);
    for (size_t k = 0; k < kLongest; ++k) t[k] = std::polar(1.0, 2 * M_PI * double(k) / double(kLongest));
    return t;
  }();
  return table;
}

// Recursive radix 2, sign of the exponent as the manual has it: +.
void transform(Spectrum &x) {
  const size_t n = x.size();
  if (n == 1) return;
  Spectrum even(n / 2), odd(n / 2);
  for (size_t i = 0; i < n / 2; ++i) {
    even[i] = x[2 * i];
    odd[i] = x[2 * i + 1];
  }
  transform(even);
  transform(odd);
  for (size_t k = 0; k < n / 2; ++k) {
    const std::complex<double> t = roots()[k * (kLongest / n)] * odd[k];
    x[k] = even[k] + t;
    x[k + n / 2] = even[k] - t;
  }
}

size_t workLength(uint32_t n) { return 2 + (size_t(1) << (std::bit_width(n / 2) - 1) / 2); }

void check(uint32_t n, const std::vector<float> &input, Block<int32_t> &ip, Block<float> &w) {
  Block<float> a(input);
  neb_rdft(int32_t(n), 1, a.data(), ip.data(), w.data());

  Spectrum expected(input.begin(), input.end());
  transform(expected);
  double energy = 0;
  for (const float v : input) energy += double(v) * double(v);
  // Single precision loses about half a unit in the last place a stage.
  const double slack = 1.2e-7 * std::bit_width(n) * std::sqrt(energy * n) + 1e-30;
  const auto near = [&](float value, double due) { return std::fabs(double(value) - due) <= slack; };
  for (size_t k = 1; k < n / 2; ++k) {
    FUZZ_CHECK(near(a.data()[2 * k], expected[k].real()));
    FUZZ_CHECK(near(a.data()[2 * k + 1], expected[k].imag()));
  }
  FUZZ_CHECK(near(a.data()[0], expected[0].real()));
  FUZZ_CHECK(near(a.data()[1], expected[n / 2].real()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const uint8_t choice = in.byte();
  // 4 .. 65536; the long ones, which take long, more seldom
  const uint32_t n = 4u << (choice & 32 ? choice % 15 : choice % 9);
  const uint32_t other = 4u << (choice & 32 ? in.byte() % 15 : in.byte() % 9);
  const uint32_t longest = std::max(n, other);
  Block<int32_t> ip(workLength(longest));
  Block<float> w(longest / 2);

  const Samples samples = in.left() >= 8 ? in.samples(n) : madeSamples(in, n);
  std::vector<float> input(n);
  for (size_t i = 0; i < samples.size(); ++i) input[i] = float(samples[i]) * (choice & 128 ? 0x1p-20f : 1.0f);

  if (choice & 64) {
    // Tables only; then a length that is no power of two or too short: nothing is done.
    std::vector<float> untouched = input;
    neb_rdft(int32_t(other), -1, untouched.data(), ip.data(), w.data());
    neb_rdft(int32_t(n + 1), 1, untouched.data(), ip.data(), w.data());
    neb_rdft(2, 1, untouched.data(), ip.data(), w.data());
    neb_rdft(-int32_t(n), 1, untouched.data(), ip.data(), w.data());
    FUZZ_CHECK(untouched == input);
  }
  check(n, input, ip, w);
  if (other <= n) {
    check(other, std::vector<float>(input.begin(), input.begin() + other), ip, w);
    check(n, input, ip, w);
  }
  return 0;
}
