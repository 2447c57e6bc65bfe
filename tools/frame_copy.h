// Going through a stream for its frames, which are taken over as they are: neither decoded nor encoded.
#pragma once

#include <functional>

#include "tools/cli/batch.h"
#include "tools/cli/command_line.h"
#include "tools/stream/mpeg_input.h"
#include "tools/stream/stream_report.h"

namespace qav::tool {

// What happens to frames that are whole, but whose check word is wrong.
enum class WrongChecks { leaveOut, takeOver };

// Walk the job's input to its end, and hand out its whole frames. What is wrong is told as it is found. Returns the exit
// status of the stream's verdict. Throws Failure, Interrupted.
int copyFrames(Job &job, const CommonOptions &options, MpegInput &input, StreamReport &report, WrongChecks wrongChecks,
               const std::function<void(const FrameEvent &)> &take);

// Where a frame ends, in seconds from the start of its stream; and where its middle is.
double endSeconds(const FrameEvent &frame);
double middleSeconds(const FrameEvent &frame);

}  // namespace qav::tool
