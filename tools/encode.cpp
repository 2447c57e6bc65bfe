// qav encode: PCM in, a Layer II stream out.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include "tools/cli/output_names.h"
#include "tools/inspect/explainer.h"
#include "tools/io/message.h"
#include "tools/pcm/layer2_encoder.h"
#include "tools/pcm/layer2_format.h"
#include "tools/pcm/verifier.h"
#include "tools/pcm_options.h"
#include "tools/stream/encoded_output.h"
#include "tools/subcommands.h"
#include "tools/threads/stretch_encoder.h"

namespace qav::tool {

namespace {

struct EncodeOptions : PcmOptions {
  StreamRequest stream;
  bool verify = false;
  bool wrap = false;
  bool bextLoudness = false;
  std::string explain;  // where reports go
};

// What became of one input.
struct Encoded {
  StreamFormat format;
  uint64_t samples = 0;  // per channel, at the stream's rate
  uint64_t frames = 0;
  uint64_t bytes = 0;
};

Encoded encodeStream(PcmInput &input, const StreamFormat &format, const StreamRequest &request, unsigned threads,
                     EncodedOutput &out, Verifier *verifier, Explainer *explainer) {
  Encoded result{format};
  bool ended = false;
  uint64_t read = 0;  // frames
  const auto next = [&](int16_t *samples) {
    size_t n = 0;
    if (!ended) {
      n = input.read(samples, QAV_SAMPLES_PER_FRAME);
      result.samples += n;
      input.advance();
      ended = n < QAV_SAMPLES_PER_FRAME;
      if (result.samples == 0) fail("holds no samples", "there is nothing to encode");
    }
    if (ended && read == framesFor(result.samples)) return false;
    std::fill(samples + n * format.channels, samples + QAV_SAMPLES_PER_FRAME * format.channels, int16_t{0});
    ++read;
    return true;
  };
  encodeStretches(format, request, threads, next, [&](const int16_t *samples, const uint8_t *frame, uint32_t bytes) {
    out.write(frame, bytes);
    if (verifier) verifier->add(samples, frame, bytes);
    if (explainer) explainer->add(samples, frame, bytes, out.size() - bytes);
    ++result.frames;
    result.bytes += bytes;
  });
  if (verifier) verifier->finish();
  return result;
}

std::string formatLine(const Encoded &result) {
  return fmt::format("{} Hz, {}, {} kbit/s, {}, {}", result.format.freqHz, counted(result.format.channels, "channel"),
                     result.format.kbps, counted(result.frames, "frame"), counted(result.bytes, "byte"));
}

std::string verifyLine(const Verifier &verifier) {
  std::string line = fmt::format("signal to noise {:.1f} dB; noise to mask by subband, mean in dB:", verifier.snrDb());
  for (unsigned band = 0; band < 32; ++band) {
    const double mean = verifier.noiseToMask(band).meanDb;
    line += mean > -HUGE_VAL ? fmt::format(" {:.1f}", mean) : " -";
  }
  return line + fmt::format("; all masked in {:.1f} % of the frames", 100.0 * verifier.maskedShare());
}

Json verifyJson(const Verifier &verifier, unsigned channels) {
  const auto number = [](double value) { return std::isfinite(value) ? Json(std::round(value * 100) / 100) : Json(); };
  Json json;
  json["snrDb"] = number(verifier.snrDb());
  json["channelSnrDb"] = Json::array();
  for (unsigned c = 0; c < channels; ++c) json["channelSnrDb"].push_back(number(verifier.snrDb(c)));
  json["noiseToMaskDb"] = Json::array();
  json["worstNoiseToMaskDb"] = Json::array();
  for (unsigned band = 0; band < 32; ++band) {
    json["noiseToMaskDb"].push_back(number(verifier.noiseToMask(band).meanDb));
    json["worstNoiseToMaskDb"].push_back(number(verifier.noiseToMask(band).worstDb));
  }
  json["maskedShare"] = number(verifier.maskedShare());
  return json;
}

// How the stream is wrapped. A pipe must be told the length beforehand: there it is known of samples that nothing is done
// to their rate.
MpegWaveWriter::Options wrapping(const EncodeOptions &options, const PcmFormat &input, const StreamFormat &format,
                                 const KeptChunks &chunks) {
  MpegWaveWriter::Options wave{.chunks = &chunks, .bextLoudness = options.bextLoudness};
  if (!input.frames) return wave;
  const uint64_t samples = convertedFrames(*input.frames, input.freqHz, format.freqHz);
  wave.expectedBytes = samples / format.freqHz * format.kbps * 125;
  if (input.freqHz == format.freqHz) wave.samples = samples;
  return wave;
}

int encodeOne(Job &job, const EncodeOptions &options, const std::string &outputName, const std::string &pageName) {
  KeptChunks chunks;
  PcmInput input(job, options, options.wrap ? &chunks : nullptr);
  const StreamFormat format = resolveFormat(options.stream, input.format());
  EncodedOutput out(outputName, options.force);
  input.begin(format.freqHz, format.channels);
  if (options.wrap) out.wrap(wrapping(options, input.format(), format, chunks));
  std::optional<Verifier> verifier;
  if (options.verify) verifier.emplace(format);
  std::optional<Explainer> explainer;
  if (!pageName.empty()) explainer.emplace(format, pageName, options.force);
  const Encoded result = encodeStream(input, format, options.stream, job.threads(), out,
                                      verifier ? &*verifier : nullptr, explainer ? &*explainer : nullptr);
  const std::string remark = out.finish(result.samples, options.bextLoudness ? input.loudness() : nullptr);
  if (!remark.empty()) job.complainAbout(outputName, {{}, remark, {}});
  if (explainer) explainer->finish(outputName, out.size());
  const int status = input.finish();

  if (job.wantsObject()) {
    Json json;
    json["status"] = status;
    json["output"] = toUtf8(outputName);
    input.describe(json);
    json["stream"] = {{"layer", 2},
                      {"freqHz", format.freqHz},
                      {"channels", format.channels},
                      {"kbps", format.kbps},
                      {"checkWords", options.stream.checkWord},
                      {"frames", result.frames},
                      {"bytes", result.bytes},
                      {"sampleFrames", result.samples}};
    if (options.wrap) json["stream"]["wrapped"] = true;
    if (verifier) json["verify"] = verifyJson(*verifier, format.channels);
    if (explainer) json["page"] = toUtf8(pageName);
    job.object(json);
  }
  if (options.json) return status;
  // Samples or a stream on standard output keep the words away from it.
  const auto say = [&](const std::string &line) {
    if (outputName == "-")
      job.complain({{}, line, {}});
    else
      job.out(job.displayInput() + ": " + line);
  };
  if (options.stream.kbps > 0 && options.stream.kbps < 128 && format.channels == 2 && !options.quiet)
    job.complain({{}, fmt::format("{} kbit/s is for both channels together", format.kbps), {}});
  if (options.verbose || options.loudness) say(input.describe());
  if (options.verbose) say(formatLine(result));
  if (verifier) say(verifyLine(*verifier));
  return status;
}

constexpr const char *kStreamGroup = "Stream";

void addStreamOptions(CommandLine &line, StreamRequest &stream) {
  CLI::App &app = line.app();
  app.add_option("-b,--bitrate", stream.kbps, "of the whole (default: 192, for one channel 96)")
      ->type_name("KBPS")
      ->group(kStreamGroup);
  app.add_option("-r,--rate", stream.freqHz, "32000, 44100, 48000 (default: input's, or next)")
      ->type_name("HZ")
      ->group(kStreamGroup);
  app.add_option("--channels", stream.channels, "one is spread to two, two averaged to one")
      ->type_name("1|2")
      ->group(kStreamGroup)
      ->check(CLI::IsMember({1u, 2u}));
  std::vector<std::string> names;
  for (const Profile &profile : profiles()) names.emplace_back(profile.name);
  app.add_option_function<std::string>(
         "--for", [&stream](const std::string &name) { stream.profile = profileNamed(name); },
         fmt::format("{}: what it allows", fmt::join(names, ", ")))
      ->type_name("USE")
      ->group(kStreamGroup)
      ->check(CLI::IsMember(names));
  app.add_flag("!--no-crc", stream.checkWord, "leave out the check words")->group(kStreamGroup);
  app.add_option_function<std::string>(
         "--emphasis",
         [&stream](const std::string &name) { stream.emphasis = name == "50/15" ? 1
                                                                : name == "j17" ? 3
                                                                                : 0; },
         "mark the sound as pre-emphasised")
      ->type_name("none|50/15|j17")
      ->group(kStreamGroup)
      ->check(CLI::IsMember({"none", "50/15", "j17"}));
  app.add_flag("--copyright", stream.copyright, "mark as protected by copyright")->group(kStreamGroup);
  CLI::Option *const original = app.add_flag("--original", stream.original, "mark as an original (default)");
  CLI::Option *const copy = app.add_flag("!--copy", stream.original, "mark as a copy");
  line.sameLine(copy->excludes(original)->group(kStreamGroup));
  original->group(kStreamGroup);
}

}  // namespace

int runEncode(int argc, char **argv) {
  CommandLine line("encode", "Encode PCM files into MPEG-1 Layer II streams.",
                   "  qav encode concert.wav -b 256           writes concert.mp2\n"
                   "  qav encode *.flac -o mp2/ --for dvb     writes mp2/....mp2");
  EncodeOptions options;
  line.addInputs(options, kPcmExtensions);
  line.addOutput(options, "the output; default: beside the input");
  addStreamOptions(line, options.stream);
  addPcmOptions(line, options);
  line.sameLine(line.app().add_flag("--verify", options.verify, "decode and measure the noise")->group(kSoundGroup));
  line.app()
      .add_option("--explain", options.explain, "a page about it, as inspect writes")
      ->type_name("FILE|DIR")
      ->group(kSoundGroup);
  line.app().add_flag("--wrap", options.wrap, "WAVE, with kept chunks")->group(kOutputGroup);
  line.sameLine(
      line.app().add_flag("--bext-loudness", options.bextLoudness, "its loudness in bext")->group(kOutputGroup));
  int status = kGood;
  if (!line.parse(argc, argv, status)) return status;
  checkRequest(options.stream);
  checkPcmOptions(options);
  if (options.bextLoudness && !options.wrap)
    failUsage("--bext-loudness is about a WAVE file", "add --wrap, or leave it out");
  if (options.bextLoudness) options.loudness = true;
  const std::vector<std::string> outputs = planOutputs(options, [&](const std::string &input, bool isBeside) {
    if (!options.wrap) return ".mp2";
    return isBeside && extensionOf(input) == ".wav" ? ".mp2.wav" : ".wav";
  });
  std::vector<std::string> pages(options.inputs.size());
  if (!options.explain.empty()) {
    CommonOptions pageOptions = options;
    pageOptions.output = options.explain;
    pages = planOutputs(pageOptions, ".html");
    if (pages[0] == "-") failUsage("--explain - would mix with what else goes to standard output", "name a file");
  }
  refuseUnfitStandardOutput(options, outputs[0], OutputKind::stream);
  return runJobs(options, [&](Job &job) { return encodeOne(job, options, outputs[job.index()], pages[job.index()]); });
}

}  // namespace qav::tool
