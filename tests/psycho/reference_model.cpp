#include "tests/psycho/reference_model.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <complex>

#include "psycho/psycho_tables.h"

namespace reference {
namespace {

constexpr int kN = 1024;

struct Circle {
  double cosine[kN], sine[kN];
};

const Circle &circle() {
  static const Circle table = [] {
    Circle c;
    for (int j = 0; j < kN; ++j) {
      c.cosine[j] = std::cos(2.0 * M_PI * j / kN);
      c.sine[j] = std::sin(2.0 * M_PI * j / kN);
    }
    return c;
  }();
  return table;
}

// The sum of x[j] exp(-2 pi i j k / 1024).
std::complex<double> fourierSum(const double *x, int k) {
  const Circle &c = circle();
  double re = 0.0, im = 0.0;
  for (int j = 0; j < kN; ++j) {
    re += x[j] * c.cosine[j * k % kN];
    im -= x[j] * c.sine[j * k % kN];
  }
  return {re, im};
}

double barkOf(double f) {
  static const double edges[] = {0,    100,  200,  300,  400,  510,  630,  770,  920,  1080,  1270,  1480,  1720, 2000,
                                 2320, 2700, 3150, 3700, 4400, 5300, 6400, 7700, 9500, 12000, 15500, 25000, 30000};
  size_t j = 1;
  while (f > edges[j]) ++j;
  return double(j - 1) + (f - edges[j - 1]) / (edges[j] - edges[j - 1]);
}

double leastRatioAt(double bark) {
  const int index = int(bark + 0.5);
  if (index < 5) return 20.0;
  if (index < 10) return std::vector<double>{17.0, 15.0, 10.0, 7.0, 4.4}[size_t(index - 5)];
  return index < 24 ? 4.5 : 3.5;
}

}  // namespace

Model::Model(int samplingIndex) {
  const double rate = std::vector<double>{44100.0, 48000.0, 32000.0}[size_t(samplingIndex)];
  numlines.assign(63, 0);
  bark.assign(63, 0.0);
  double lowest = -1.0;
  for (int line = 0; line <= kN / 2; ++line) {
    const double value = barkOf(line * rate / kN);
    if (line == 0 || value - lowest > 0.33) {
      lowest = value;
      ++partitions;
    }
    ++numlines[size_t(partitions - 1)];
    bark[size_t(partitions - 1)] += value;
  }
  for (size_t p = 0; p < size_t(partitions); ++p) bark[p] /= numlines[p];

  spread.assign(63, std::vector<double>(63));
  for (size_t p = 0; p < 63; ++p) {
    double gain = 0.0;
    for (size_t k = 0; k < 63; ++k) {
      const double dz = (bark[p] - bark[k]) * 1.05;
      const double x = dz < 0.5 || dz > 2.5 ? 0.0 : 8.0 * (std::pow(dz - 0.5, 2) - 2.0 * (dz - 0.5));
      const double y = 15.811389 + 7.5 * (dz + 0.474) - 17.5 * std::sqrt(1.0 + std::pow(dz + 0.474, 2));
      spread[p][k] = y <= -100.0 ? 0.0 : std::pow(10.0, (x + y) / 10.0);
      gain += spread[p][k];
    }
    norm.push_back(numlines[p] == 0 ? 0.0 : 1.0 / (gain * numlines[p]));
    tmn.push_back(std::max(15.5 + bark[p], 24.5));
    leastRatio.push_back(leastRatioAt(bark[p]));
  }
  for (size_t line = 0; line <= kN / 2; ++line)
    threshold.push_back(
        std::pow(10.0, (qav::absoluteThresholdHundredths[samplingIndex][line] / 100.0 + 41.837375) / 10.0));
  for (int ch = 0; ch < 2; ++ch) {
    kept[ch].assign(480, 0.0);
    for (Pass &pass : history[ch]) {
      pass.magnitude.assign(513, 0.0);
      pass.phase.assign(513, 0.0);
    }
  }
}

std::vector<double> Model::analyse(const int16_t *samples, int channel) {
  std::vector<double> stream = kept[channel];
  stream.insert(stream.end(), samples, samples + 1152);
  kept[channel].assign(stream.end() - 480, stream.end());

  std::vector<double> result(32, 0.0);
  for (size_t pass = 0; pass < 2; ++pass) {
    std::vector<double> x(kN);
    for (size_t j = 0; j < kN; ++j)
      x[j] = stream[576 * pass + j] * 0.5 * (1.0 - std::cos(2.0 * M_PI * (double(j) - 0.5) / kN));

    Pass now;
    std::vector<double> energy(513), unpredictability(513);
    const Pass &old = history[channel][0], &oldest = history[channel][1];
    for (size_t k = 0; k <= 512; ++k) {
      const std::complex<double> sum = fourierSum(x.data(), int(k));
      const bool real = k == 0 || k == 512;
      const double r = std::abs(sum);
      now.magnitude.push_back(r);
      now.phase.push_back(real || r == 0.0 ? 0.0 : std::arg(sum));
      energy[k] = r * r;
      const double predicted = 2.0 * old.magnitude[k] - oldest.magnitude[k];
      const double phase = 2.0 * old.phase[k] - oldest.phase[k];
      const double total = r + std::abs(predicted);
      const double distance = std::abs(std::polar(r, now.phase[k]) - predicted * std::polar(1.0, phase));
      unpredictability[k] = total == 0.0 ? 0.0 : distance / total;
    }
    history[channel][1] = history[channel][0];
    history[channel][0] = now;

    std::vector<double> groupedE(63), groupedC(63);
    size_t line = 0;
    for (size_t p = 0; p < 63; ++p)
      for (int i = 0; i < numlines[p]; ++i, ++line) {
        groupedE[p] += energy[line];
        groupedC[p] += energy[line] * unpredictability[line];
      }

    std::vector<double> thr(513);
    line = 0;
    for (size_t p = 0; p < 63; ++p) {
      double ecb = 0.0, cs = 0.0;
      for (size_t k = 0; k < 63; ++k) {
        ecb += spread[p][k] * groupedE[k];
        cs += spread[p][k] * groupedC[k];
      }
      const double cb = ecb == 0.0 ? 0.05 : std::min(std::max(cs / ecb, 0.05), 0.5);
      const double tonality = -0.434294482 * std::log(cb) - 0.301029996;
      const double ratio = std::max(tonality * tmn[p] + (1.0 - tonality) * 5.5, leastRatio[p]);
      const double noise = ecb * std::pow(10.0, -ratio / 10.0) * norm[p];
      for (int i = 0; i < numlines[p]; ++i, ++line) thr[line] = std::max(noise, threshold[line]);
    }

    for (size_t sb = 0; sb < 32; ++sb) {
      double e = 0.0, sum = 0.0, least = DBL_MAX;
      for (size_t i = 16 * sb; i <= 16 * sb + 16; ++i) {
        e += energy[i];
        sum += thr[i];
        least = std::min(least, thr[i]);
      }
      result[sb] = std::max(result[sb], e / (sb < 13 ? least * 17.0 : sum));
    }
  }
  for (double &smr : result) smr = 10.0 * std::log10(std::max(double(FLT_MIN), smr));
  return result;
}

}  // namespace reference
