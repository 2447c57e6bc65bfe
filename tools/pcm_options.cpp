#include "tools/pcm_options.h"

#include <fmt/format.h>

#include <cmath>

#include "tools/io/failure.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

// To a tenth, which is what the measurement gives; null for what has no level.
Json decibelsJson(double value) { return std::isfinite(value) ? Json(std::round(value * 10.0) / 10.0) : Json(); }

std::string decibelsText(double value, const char *unit) {
  return std::isfinite(value) ? fmt::format("{:.1f} {}", value, unit) : fmt::format("-inf {}", unit);
}

}  // namespace

void addPcmOptions(CommandLine &line, PcmOptions &options) {
  CLI::App &app = line.app();
  app.add_option_function<std::string>(
         "--raw", [&](const std::string &text) { options.raw = parseRawFormat(text); },
         "input without a header, as in s16le,44100,2")
      ->type_name("FORMAT,RATE,CHANNELS")
      ->group(kInputGroup);
  app.add_option_function<std::string>(
         "--resampler",
         [&](const std::string &name) { options.resampler = name == "linear" ? Resampler::linear : Resampler::soxr; },
         "converts rates (default: soxr, very high quality)")
      ->type_name("soxr|linear")
      ->group(kSoundGroup)
      ->check(CLI::IsMember({"soxr", "linear"}));
  app.add_flag("!--no-dither", options.dither, "round to 16 bits without dither")->group(kSoundGroup);
  app.add_option_function<double>(
         "--gain",
         [&](double db) {
           options.gainDb = db;
           options.gainGiven = true;
         },
         "add DB")
      ->type_name("DB")
      ->group(kSoundGroup)
      ->check(CLI::Range(-100.0, 100.0));
  line.sameLine(app.add_option_function<double>(
                       "--normalize",
                       [&](double lufs) {
                         options.normalizeLufs = lufs;
                         options.normalize = true;
                       },
                       "bring to LUFS (reads the input twice)")
                    ->type_name("LUFS")
                    ->group(kSoundGroup)
                    ->check(CLI::Range(-70.0, 0.0)));
  app.add_option("--lowpass", options.lowpass, "filter 8-bit input: 1 dulls least, 7 most")
      ->type_name("1..7")
      ->group(kSoundGroup)
      ->check(CLI::Range(1u, 7u));
  app.add_flag("--loudness", options.loudness, "measure loudness")->group(kSoundGroup);
}

void checkPcmOptions(const PcmOptions &options) {
  if (options.gainGiven && options.normalize)
    failUsage("--gain and --normalize contradict each other", "give one of them");
  if (options.raw && options.lowpass > 0 && options.raw->sample.bytes != 1)
    failUsage("--lowpass filters 8-bit input, --raw names another", "leave --lowpass out");
  for (const std::string &input : options.inputs)
    if (options.normalize && input == "-")
      failUsage("--normalize reads its input twice, standard input can be read once", "save it to a file first");
}

PcmInput::PcmInput(Job &job, const PcmOptions &options, KeptChunks *keep)
    : job_(job), options_(options), keep_(keep), reader_(openPcm(job.input(), options.raw, keep)) {
  if (options.lowpass > 0 && format().bits != 8)
    fail(fmt::format("has samples of {} bits, --lowpass is for 8-bit input", format().bits), "leave --lowpass out");
}

void PcmInput::begin(uint32_t freqHz, unsigned channels) {
  settings_ = {freqHz, channels, options_.resampler, options_.dither, options_.gainDb, options_.lowpass};
  if (options_.normalize) measure();
  if (options_.loudness) meter_.emplace(freqHz, channels);
  pipeline_.emplace(*reader_, settings_, meter_ ? &*meter_ : nullptr);
}

void PcmInput::measure() {
  LoudnessMeter meter(settings_.freqHz, settings_.channels);
  PcmPipeline pipeline(*reader_, settings_, &meter);
  std::vector<int16_t> block(1152 * settings_.channels);
  while (pipeline.read(block.data(), 1152) > 0) {
  }
  const double lufs = meter.finish().integratedLufs;
  if (std::isfinite(lufs)) settings_.gainDb = options_.normalizeLufs - lufs;
  if (keep_) keep_->clear();
  reader_ = openPcm(job_.input(), options_.raw, keep_);
}

void PcmInput::advance() const {
  const double done = static_cast<double>(pipeline_->inputFrames());
  const std::optional<uint64_t> all = format().frames;
  job_.advance(all && *all > 0 ? done / static_cast<double>(*all) : 0.0, done / format().freqHz);
}

int PcmInput::finish() const {
  int status = kGood;
  for (const Remark &remark : reader_->remarks()) {
    if (remark.damage) status = kDamaged;
    if (remark.damage || !options_.quiet) job_.complain(remark.complaint);
  }
  if (const uint64_t clipped = pipeline_->clippedSamples(); clipped > 0)
    job_.complain({{},
                   counted(clipped, "sample") + (clipped == 1 ? " was clipped" : " were clipped"),
                   "lower the level with --gain"});
  return status;
}

const Loudness *PcmInput::loudness() {
  if (meter_ && !loudness_) loudness_ = meter_->finish();
  return loudness_ ? &*loudness_ : nullptr;
}

std::string PcmInput::describe() {
  const PcmFormat &in = format();
  std::string text = fmt::format("{}, {}-bit{}, {} Hz, {}", in.container, in.bits, in.floating ? " floating" : "",
                                 in.freqHz, counted(in.channels, "channel"));
  if (pipeline_->convertsRate())
    text += fmt::format("; resampled by {}",
                        options_.resampler == Resampler::soxr ? "soxr at very high quality" : "linear interpolation");
  if (settings_.gainDb != 0.0) text += fmt::format("; gain {:.2f} dB", settings_.gainDb);
  if (settings_.lowpassLevel > 0) text += fmt::format("; low-pass {}", settings_.lowpassLevel);
  if (pipeline_->hasDithered()) text += "; dithered";
  if (const Loudness *const measured = loudness())
    text += fmt::format("; loudness {}, range {:.1f} LU, true peak {}", decibelsText(measured->integratedLufs, "LUFS"),
                        measured->rangeLu, decibelsText(measured->truePeakDbtp, "dBTP"));
  return text;
}

void PcmInput::describe(Json &json) {
  const PcmFormat &in = format();
  json["input"] = {{"container", in.container}, {"bits", in.bits},         {"floating", in.floating},
                   {"freqHz", in.freqHz},       {"channels", in.channels}, {"sampleFrames", pipeline_->inputFrames()}};
  json["resampler"] = pipeline_->convertsRate() ? Json(resamplerName(options_.resampler)) : Json();
  json["gainDb"] = settings_.gainDb;
  json["dithered"] = pipeline_->hasDithered();
  json["clippedSamples"] = pipeline_->clippedSamples();
  if (const Loudness *const measured = loudness())
    json["loudness"] = {{"integratedLufs", decibelsJson(measured->integratedLufs)},
                        {"rangeLu", decibelsJson(measured->rangeLu)},
                        {"truePeakDbtp", decibelsJson(measured->truePeakDbtp)}};
  json["remarks"] = Json::array();
  for (const Remark &remark : reader_->remarks())
    json["remarks"].push_back({{"what", remark.complaint.what}, {"damage", remark.damage}});
}

}  // namespace qav::tool
