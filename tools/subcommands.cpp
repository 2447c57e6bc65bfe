#include "tools/subcommands.h"

#include "tools/cli/command_line.h"

namespace qav::tool {

const std::vector<Subcommand> subcommands = {
    {"encode", "encode PCM files into Layer II streams", runEncode},
    {"decode", "decode MPEG audio into WAV files", runDecode},
    {"check", "say whether MPEG audio is whole, and what is wrong with it", runCheck},
    {"info", "say what is in MPEG audio files", runInfo},
    {"inspect", "show what is in MPEG audio and where its bits went, as a page", runInspect},
    {"cut", "cut a part out of MPEG audio, without encoding anew", runCut},
    {"join", "join MPEG audio streams, without encoding anew", runJoin},
    {"wrap", "wrap MPEG audio into WAVE files, without encoding anew", runWrap},
    {"unwrap", "take MPEG audio out of WAVE files, without encoding anew", runUnwrap},
    {"resample", "convert PCM files to another sampling rate", runResample},
};

}  // namespace qav::tool
