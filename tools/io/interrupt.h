// SIGINT, SIGTERM and SIGHUP: the work in hand is given up, temporary files are removed, the process ends by the signal.
//
// Whoever works calls throwIfInterrupted() now and then and waits for slow inputs with waitReadable(). What is stuck all
// the same (in opening a named pipe, in writing to one that nobody reads, on a dead network drive) is not waited for:
// after a short grace the temporary files are removed and the process is ended from outside.
#pragma once

#include <string>

namespace qav::tool {

// Thrown out of the work when a signal has come. Not a std::exception: nobody catches it by mistake.
struct Interrupted {};

// Take over the signals; before the first thread is started. Ignores SIGPIPE and SIGXFSZ: they arrive as errors of
// write().
void handleSignals();

void throwIfInterrupted();

// Wait until the descriptor can be read, throwing Interrupted when a signal comes first.
void waitReadable(int fd);

// Remove every registered temporary file and end the process by the signal that came.
[[noreturn]] void endInterrupted();

// A file that must not survive an interruption, from its creation to its renaming or removal.
void registerTemporary(const std::string &path);
void unregisterTemporary(const std::string &path);

}  // namespace qav::tool
