// The real transform against its definition, in double precision.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "include/qav.h"

namespace {

constexpr float kGuard = -12345.5f;
constexpr int32_t kIntGuard = 0x5A5A5A5A;

// The entries of ip that a transform of n points may use.
size_t ipEntries(int32_t n) {
  size_t root = 1;
  while (root * root * 4 <= size_t(n) / 2) root *= 2;
  return 2 + root;
}

// Work areas with guards behind them.
struct WorkAreas {
  explicit WorkAreas(int32_t n) : ip(ipEntries(n) + 8, kIntGuard), w(size_t(n) / 2 + 8, kGuard) { ip[0] = ip[1] = 0; }
  void expectGuards(int32_t n) const {
    for (size_t i = ipEntries(n); i < ip.size(); ++i) EXPECT_EQ(ip[i], kIntGuard) << "ip " << i << " of " << n;
    for (size_t i = size_t(n) / 2; i < w.size(); ++i) EXPECT_EQ(w[i], kGuard) << "w " << i << " of " << n;
  }
  std::vector<int32_t> ip;
  std::vector<float> w;
};

// X[k] = sum of x[j] exp(+2 pi i j k / n), directly up to `longest` values; more are reduced to that by radix-2 steps.
void definition(const std::vector<double> &re, const std::vector<double> &im, size_t longest,
                std::vector<double> &outRe, std::vector<double> &outIm) {
  const size_t n = re.size();
  outRe.assign(n, 0.0);
  outIm.assign(n, 0.0);
  if (n > longest) {
    std::vector<double> part[4], out[4];
    for (size_t j = 0; j < n; ++j) {
      part[j % 2 * 2].push_back(re[j]);
      part[j % 2 * 2 + 1].push_back(im[j]);
    }
    definition(part[0], part[1], longest, out[0], out[1]);
    definition(part[2], part[3], longest, out[2], out[3]);
    for (size_t k = 0; k < n; ++k) {
      const double angle = 2.0 * M_PI * double(k) / double(n), c = std::cos(angle), s = std::sin(angle);
      const double oddRe = out[2][k % (n / 2)], oddIm = out[3][k % (n / 2)];
      outRe[k] = out[0][k % (n / 2)] + c * oddRe - s * oddIm;
      outIm[k] = out[1][k % (n / 2)] + c * oddIm + s * oddRe;
    }
    return;
  }
  std::vector<double> cosine(n), sine(n);
  for (size_t j = 0; j < n; ++j) {
    cosine[j] = std::cos(2.0 * M_PI * double(j) / double(n));
    sine[j] = std::sin(2.0 * M_PI * double(j) / double(n));
  }
  for (size_t k = 0; k < n; ++k)
    for (size_t j = 0; j < n; ++j) {
      outRe[k] += re[j] * cosine[j * k % n] - im[j] * sine[j * k % n];
      outIm[k] += re[j] * sine[j * k % n] + im[j] * cosine[j * k % n];
    }
}

std::vector<double> packedDefinition(const std::vector<float> &a) {
  const size_t n = a.size();
  std::vector<double> re, im;
  definition({a.begin(), a.end()}, std::vector<double>(n), n <= 1024 ? 1024 : 64, re, im);
  std::vector<double> packed(n);
  packed[0] = re[0];
  packed[1] = re[n / 2];
  for (size_t k = 1; k < n / 2; ++k) {
    packed[2 * k] = re[k];
    packed[2 * k + 1] = im[k];
  }
  return packed;
}

std::vector<float> noise(int32_t n, uint32_t seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> value(-1.0f, 1.0f);
  std::vector<float> a(static_cast<size_t>(n));
  for (float &x : a) x = value(random);
  return a;
}

// The root mean square error relative to that of the spectrum, and the largest one likewise.
void expectNear(const std::vector<double> &truth, const std::vector<float> &got) {
  double power = 0.0, error = 0.0, largest = 0.0;
  for (size_t i = 0; i < truth.size(); ++i) {
    power += truth[i] * truth[i];
    error += std::pow(truth[i] - double(got[i]), 2);
    largest = std::max(largest, std::abs(truth[i] - double(got[i])));
  }
  const double n = double(truth.size()), rms = std::sqrt(power / n);
  EXPECT_LT(std::sqrt(error / n), 2.5e-7 * rms) << truth.size();
  EXPECT_LT(largest, 2e-6 * rms) << truth.size();
}

TEST(Rdft, EqualsTheDefinitionAtEveryLength) {
  for (int32_t n = 4; n <= 65536; n *= 2) {
    SCOPED_TRACE(n);
    std::vector<float> a = noise(n, uint32_t(n));
    const std::vector<double> truth = packedDefinition(a);
    a.resize(size_t(n) + 8, kGuard);
    WorkAreas areas(n);
    neb_rdft(n, 1, a.data(), areas.ip.data(), areas.w.data());
    for (size_t i = size_t(n); i < a.size(); ++i) EXPECT_EQ(a[i], kGuard);
    a.resize(size_t(n));
    expectNear(truth, a);
    areas.expectGuards(n);
    EXPECT_EQ(areas.ip[0], n / 4);
    EXPECT_EQ(areas.ip[1], n / 4);
  }
}

TEST(Rdft, ShorterLengthsUseTheTablesOfLongerOnes) {
  WorkAreas areas(4096);
  neb_rdft(4096, -1, nullptr, areas.ip.data(), areas.w.data());
  const std::vector<float> tables = areas.w;
  for (int32_t n = 4; n <= 4096; n *= 2) {
    std::vector<float> a = noise(n, uint32_t(n) + 1), fresh = a;
    const std::vector<double> truth = packedDefinition(a);
    neb_rdft(n, 1, a.data(), areas.ip.data(), areas.w.data());
    expectNear(truth, a);
    EXPECT_EQ(areas.w, tables);
    WorkAreas own(n);
    neb_rdft(n, 0, fresh.data(), own.ip.data(), own.w.data());
    EXPECT_EQ(std::memcmp(a.data(), fresh.data(), sizeof(float) * a.size()), 0) << n;
  }
}

TEST(Rdft, LongerLengthsRebuildTheTables) {
  WorkAreas areas(2048);
  for (int32_t n = 4; n <= 2048; n *= 2) {
    std::vector<float> a = noise(n, uint32_t(n) + 2);
    const std::vector<double> truth = packedDefinition(a);
    neb_rdft(n, 1, a.data(), areas.ip.data(), areas.w.data());
    expectNear(truth, a);
    EXPECT_EQ(areas.ip[0], n / 4);
    EXPECT_EQ(areas.ip[1], n / 4);
  }
  areas.expectGuards(2048);
}

TEST(Rdft, NegativeDirectionOnlyBuildsTheTables) {
  for (int32_t n : {4, 8, 1024}) {
    std::vector<float> a = noise(n, 3);
    const std::vector<float> before = a;
    WorkAreas areas(n), forward(n);
    neb_rdft(n, -1, a.data(), areas.ip.data(), areas.w.data());
    EXPECT_EQ(a, before);
    neb_rdft(n, 1, a.data(), forward.ip.data(), forward.w.data());
    EXPECT_EQ(areas.w, forward.w);
    EXPECT_EQ(areas.ip, forward.ip);
  }
}

TEST(Rdft, TablesHoldTheFirstQuarterBitReversedAndHalfCosines) {
  constexpr int32_t n = 1024;
  WorkAreas areas(n);
  neb_rdft(n, -1, nullptr, areas.ip.data(), areas.w.data());
  for (uint32_t b = 0; b < 128; ++b) {
    uint32_t reversed = 0;
    for (uint32_t bit = 0; bit < 7; ++bit) reversed |= (b >> bit & 1) << (6 - bit);
    const double angle = M_PI / 2 * reversed / 128;
    EXPECT_EQ(areas.w[2 * b], float(std::cos(angle))) << b;
    EXPECT_EQ(areas.w[2 * b + 1], float(std::sin(angle))) << b;
  }
  for (int j = 1; j < 256; ++j) {
    // From the end the sines stand, which are the cosines of the angle's complement.
    EXPECT_EQ(areas.w[size_t(256 + j)], float(0.5 * std::cos(M_PI / 2 * j / 256))) << j;
  }
  EXPECT_EQ(areas.w[256], float(std::cos(M_PI / 4)));
}

TEST(Rdft, SpectraKnownInAdvance) {
  constexpr int32_t n = 1024;
  WorkAreas areas(n);
  const auto spectrumOf = [&](auto sample) {
    std::vector<float> a(n);
    for (int j = 0; j < n; ++j) a[size_t(j)] = float(sample(j));
    neb_rdft(n, 1, a.data(), areas.ip.data(), areas.w.data());
    return a;
  };
  const auto expectOnly = [](const std::vector<float> &a, size_t index, float value) {
    for (size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], i == index ? value : 0.0f, 3e-4f) << i;
  };
  expectOnly(spectrumOf([](int) { return 1.5; }), 0, 1.5f * n);
  expectOnly(spectrumOf([](int j) { return std::cos(2.0 * M_PI * 3.0 * j / n); }), 6, n / 2.0f);
  expectOnly(spectrumOf([](int j) { return std::sin(2.0 * M_PI * 3.0 * j / n); }), 7, n / 2.0f);
  expectOnly(spectrumOf([](int j) { return j % 2 == 0 ? 1.0 : -1.0; }), 1, n);
  for (const float x : spectrumOf([](int) { return 0.0; })) EXPECT_EQ(x, 0.0f);
}

TEST(Rdft, IllegalLengthsDoNothing) {
  for (int32_t n : {-8, -1, 0, 1, 2, 3, 12, 1000}) neb_rdft(n, 1, nullptr, nullptr, nullptr);
}

}  // namespace
