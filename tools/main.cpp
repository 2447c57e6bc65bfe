// qav: the command-line tool.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "tools/cli/command_line.h"
#include "tools/cli/nearest.h"
#include "tools/cli/option_list.h"
#include "tools/io/failure.h"
#include "tools/io/interrupt.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

std::string helpText() {
  std::string text =
      "MPEG audio Layer I and II, in and out.\n\n"
      "  qav encode -b 192 concert.wav    writes concert.mp2\n"
      "  qav decode concert.mp2           writes concert.wav\n\n"
      "Usage: qav SUBCOMMAND [OPTION]... INPUT...\n\n"
      "Subcommands:\n";
  for (const Subcommand &command : subcommands) text += fmt::format("  {:<10} {}\n", command.name, command.summary);
  text +=
      "\nOptions:\n"
      "  -h, --help  this text; 'qav SUBCOMMAND --help' tells the options of each\n"
      "  --version   the version\n"
      "\nExit status, of several inputs the worst:\n"
      "  0  good\n"
      "  1  wrong usage\n"
      "  2  an input is unreadable or nothing qav reads, or an output cannot be written\n"
      "  3  a stream was damaged; what could be decoded was written\n";
  return text;
}

// For what makes completions: every subcommand's options, each a JSON object on a line.
int listOptions() {
  for (const Subcommand &command : subcommands) {
    std::string name = command.name, option{kListOptions};
    char *arguments[] = {name.data(), option.data(), nullptr};
    command.run(2, arguments);
  }
  return kGood;
}

int complainUsage(const std::string &what, const std::string &remedy) {
  fmt::print(stderr, "{}\n", messageLine("", {{}, what, remedy}));
  return kUsage;
}

int runTool(int argc, char **argv) {
  if (argc < 2) {
    fmt::print(stderr, "{}", helpText());
    return kUsage;
  }
  const std::string word = argv[1];
  if (word == "help" && argc > 2) {
    std::string option = "--help";
    char *arguments[] = {argv[0], argv[2], option.data(), nullptr};
    return runTool(3, arguments);
  }
  if (word == "--help" || word == "-h" || word == "help") {
    fmt::print("{}", helpText());
    return kGood;
  }
  if (word == "--version") {
    fmt::print("{}\n", versionText());
    return kGood;
  }
  if (word == kListOptions) return listOptions();
  std::vector<std::string> names;
  for (const Subcommand &command : subcommands) {
    if (word == command.name) return command.run(argc - 1, argv + 1);
    names.emplace_back(command.name);
  }
  const std::string meant = nearest(word, names);
  return complainUsage("there is no subcommand " + displayName(word),
                       meant.empty() ? "see 'qav --help'" : "did you mean '" + meant + "'?");
}

// A standard stream that was closed must not become the number of a file that is opened later: what stands there instead
// fails to be read or written.
void occupyStandardStreams() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (fcntl(fd, F_GETFD) < 0) static_cast<void>(open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY));
}

// Standard output is checked too: results that did not arrive were not given.
int flushed(int status) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return status;
  const int error = errno;
  if (error == EPIPE)
    fmt::print(stderr, "{}\n",
               messageLine("standard output", {{}, "its reader has closed it", "let it read to the end"}));
  else
    fmt::print(stderr, "{}\n",
               messageLine("standard output", {{}, "cannot be written: " + errorText(error), "check the drive"}));
  return worseOf(status, kUnusable);
}

}  // namespace

}  // namespace qav::tool

int main(int argc, char **argv) {
  using namespace qav::tool;
  try {
    occupyStandardStreams();
    handleSignals();
    return flushed(runTool(argc, argv));
  } catch (const Interrupted &) {
    endInterrupted();
  } catch (const Failure &failure) {
    fmt::print(stderr, "{}\n", messageLine(failure.file, failure.complaint));
    return failure.status;
  } catch (const std::exception &error) {
    fmt::print(stderr, "{}\n", messageLine("", {{}, error.what(), {}}));
    return kUnusable;
  }
}
