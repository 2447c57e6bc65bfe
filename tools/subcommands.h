// The entry of each subcommand; arguments from the subcommand's own name on. Returns the exit status.
#pragma once

namespace qav::tool {

int runCheck(int argc, char **argv);
int runCut(int argc, char **argv);
int runDecode(int argc, char **argv);
int runEncode(int argc, char **argv);
int runInfo(int argc, char **argv);
int runInspect(int argc, char **argv);
int runJoin(int argc, char **argv);
int runResample(int argc, char **argv);
int runUnwrap(int argc, char **argv);
int runWrap(int argc, char **argv);

}  // namespace qav::tool
