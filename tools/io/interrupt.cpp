#include "tools/io/interrupt.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

namespace qav::tool {

namespace {

constexpr std::chrono::milliseconds kGrace{500};  // for the workers to come out by themselves

std::atomic<int> receivedSignal{0};
int wakeUp[2] = {-1, -1};  // a pipe whose writing end is closed when a signal comes, which wakes every waiting thread

std::mutex temporariesMutex;
std::set<std::string> temporaries;

void watch(sigset_t signals) {
  int signal = 0;
  while (sigwait(&signals, &signal) != 0) {
  }
  receivedSignal = signal;
  close(wakeUp[1]);
  std::this_thread::sleep_for(kGrace);
  endInterrupted();
}

}  // namespace

void handleSignals() {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction current {};
    sigaction(number, nullptr, &current);
    if (current.sa_handler != SIG_IGN) sigaddset(&signals, number);  // as under nohup: stays ignored
  }
  if (pipe2(wakeUp, O_CLOEXEC) != 0) return;  // the signals then end the process as they do by default
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread(watch, signals).detach();
}

void throwIfInterrupted() {
  if (receivedSignal.load(std::memory_order_relaxed) != 0) throw Interrupted{};
}

void waitReadable(int fd) {
  pollfd both[2] = {{fd, POLLIN, 0}, {wakeUp[0], POLLIN, 0}};
  for (;;) {
    throwIfInterrupted();
    const int ready = poll(both, 2, -1);
    if (ready < 0 && errno != EINTR) return;  // the read that follows says what is wrong
    if (ready > 0 && both[0].revents != 0) return;
  }
}

void endInterrupted() {
  temporariesMutex.lock();  // and never unlocked: nobody may create another one
  for (const std::string &path : temporaries) unlink(path.c_str());
  const int number = receivedSignal;
  signal(number, SIG_DFL);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, number);
  pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
  raise(number);
  _exit(128 + number);
}

void registerTemporary(const std::string &path) {
  const std::lock_guard lock(temporariesMutex);
  temporaries.insert(path);
}

void unregisterTemporary(const std::string &path) {
  const std::lock_guard lock(temporariesMutex);
  temporaries.erase(path);
}

}  // namespace qav::tool
