/* Preloaded into the tool, makes system calls go wrong as they do on bad days. Only files under QAV_FAULT_FOLDER and the
 * standard streams are concerned.
 *
 *   QAV_FAULTS   CALL:N:FAULT, several separated by commas. CALL is open, read, write, close, rename, tmpfile or clock; N
 *                counts those calls from 1, * is each of them. FAULT is the name of an error, or `short`: only a part of
 *                what was asked for is done; `slow`: the call takes 20 ms longer; `full`: the temporary file is on a drive
 *                without room; `ahead`, `back`: the clock leaps by hours at every look.
 *   QAV_FAULT_MEMORY   N: the Nth allocation of the C library's fails, counted from 1; N-: and all after it.
 *   QAV_FAULT_COUNTS   a file to which, at the end, "CALL NUMBER" lines are written: how often each was called.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

enum Call { kOpen, kRead, kWrite, kClose, kRename, kTmpfile, kClock, kCalls };
static const char *const kNames[kCalls] = {"open", "read", "write", "close", "rename", "tmpfile", "clock"};

static atomic_int counts[kCalls];
static _Atomic unsigned char watched[1024];

static const struct {
  const char *name;
  int number;
} kErrors[] = {{"EIO", EIO},       {"EINTR", EINTR},   {"ENOSPC", ENOSPC}, {"EAGAIN", EAGAIN},
               {"EPIPE", EPIPE},   {"ENOENT", ENOENT}, {"EACCES", EACCES}, {"EMFILE", EMFILE},
               {"EDQUOT", EDQUOT}, {"EROFS", EROFS},   {"EINVAL", EINVAL}};

static atomic_long allocations;
static atomic_long firstRefused, lastRefused; /* 0: none */

__attribute__((constructor)) static void readMemoryFault(void) {
  const char *const given = getenv("QAV_FAULT_MEMORY");
  if (given == NULL) return;
  char *end;
  const long n = strtol(given, &end, 10);
  atomic_store(&lastRefused, *end == '-' ? LONG_MAX : n);
  atomic_store(&firstRefused, n);
}

enum { kNone = 0, kShort = -1, kAhead = -2, kBack = -3, kFull = -4 }; /* or an error's number */

static void *next(const char *name) { return dlsym(RTLD_NEXT, name); }

/* What is to befall this call. */
static int faultOf(enum Call call) {
  const int n = atomic_fetch_add(&counts[call], 1) + 1;
  const char *spec = getenv("QAV_FAULTS");
  while (spec != NULL && *spec != '\0') {
    char name[16], number[16], fault[16];
    if (sscanf(spec, "%15[^:]:%15[^:]:%15[^,]", name, number, fault) == 3 && strcmp(name, kNames[call]) == 0 &&
        (strcmp(number, "*") == 0 || atoi(number) == n)) {
      if (strcmp(fault, "short") == 0) return kShort;
      if (strcmp(fault, "slow") == 0) return nanosleep(&(struct timespec){0, 20000000}, NULL), kNone;
      if (strcmp(fault, "ahead") == 0) return kAhead;
      if (strcmp(fault, "back") == 0) return kBack;
      if (strcmp(fault, "full") == 0) return kFull;
      for (size_t i = 0; i < sizeof kErrors / sizeof *kErrors; ++i)
        if (strcmp(fault, kErrors[i].name) == 0) return kErrors[i].number;
      fprintf(stderr, "fault_injector: what is %s?\n", fault);
      abort();
    }
    spec = strchr(spec, ',');
    if (spec != NULL) ++spec;
  }
  return kNone;
}

static int isOurs(const char *path) {
  const char *const folder = getenv("QAV_FAULT_FOLDER");
  return folder != NULL && strncmp(path, folder, strlen(folder)) == 0;
}

static int isWatched(int fd) {
  return fd == 0 || fd == 1 || (fd > 2 && fd < (int)sizeof watched && atomic_load(&watched[fd]) != 0);
}

static void watch(int fd, int on) {
  if (fd > 2 && fd < (int)sizeof watched) atomic_store(&watched[fd], (unsigned char)on);
}

__attribute__((destructor)) static void writeCounts(void) {
  const char *const name = getenv("QAV_FAULT_COUNTS");
  if (name == NULL) return;
  FILE *const f = fopen(name, "w");
  if (f == NULL) return;
  fprintf(f, "memory %ld\n", atomic_load(&allocations));
  for (int i = 0; i < kCalls; ++i) fprintf(f, "%s %d\n", kNames[i], atomic_load(&counts[i]));
  fclose(f);
}

#define OPEN(function)                                                                            \
  int function(const char *path, int flags, ...) {                                                \
    mode_t mode = 0;                                                                              \
    if (flags & O_CREAT) {                                                                        \
      va_list arguments;                                                                          \
      va_start(arguments, flags);                                                                 \
      mode = va_arg(arguments, mode_t);                                                           \
      va_end(arguments);                                                                          \
    }                                                                                             \
    int (*const real)(const char *, int, ...) = (int (*)(const char *, int, ...))next(#function); \
    if (!isOurs(path)) return real(path, flags, mode);                                            \
    const int fault = faultOf(kOpen);                                                             \
    if (fault > 0) return errno = fault, -1;                                                      \
    const int fd = real(path, flags, mode);                                                       \
    watch(fd, 1);                                                                                 \
    return fd;                                                                                    \
  }
OPEN(open)
OPEN(open64)

static size_t part(size_t bytes) { return bytes > 1 ? bytes / 2 + 1 - bytes % 3 % 2 : bytes; }

ssize_t read(int fd, void *buffer, size_t bytes) {
  ssize_t (*const real)(int, void *, size_t) = (ssize_t(*)(int, void *, size_t))next("read");
  const int fault = isWatched(fd) ? faultOf(kRead) : kNone;
  if (fault > 0) return errno = fault, -1;
  return real(fd, buffer, fault == kShort ? part(bytes) : bytes);
}

ssize_t write(int fd, const void *buffer, size_t bytes) {
  ssize_t (*const real)(int, const void *, size_t) = (ssize_t(*)(int, const void *, size_t))next("write");
  const int fault = isWatched(fd) ? faultOf(kWrite) : kNone;
  if (fault > 0) return errno = fault, -1;
  return real(fd, buffer, fault == kShort ? part(bytes) : bytes);
}

/* At a place in the file: counted with the others. */
#define AT_PLACE(function, kind, pointer, offset)                                                                    \
  ssize_t function(int fd, pointer buffer, size_t bytes, offset at) {                                                \
    ssize_t (*const real)(int, pointer, size_t, offset) = (ssize_t(*)(int, pointer, size_t, offset))next(#function); \
    const int fault = isWatched(fd) ? faultOf(kind) : kNone;                                                         \
    if (fault > 0) return errno = fault, -1;                                                                         \
    return real(fd, buffer, fault == kShort ? part(bytes) : bytes, at);                                              \
  }
AT_PLACE(pread, kRead, void *, off_t)
AT_PLACE(pread64, kRead, void *, off64_t)
AT_PLACE(pwrite, kWrite, const void *, off_t)
AT_PLACE(pwrite64, kWrite, const void *, off64_t)

#define IN_PARTS(function, offset)                                                           \
  ssize_t function(int fd, const struct iovec *parts, int n, offset at, int flags) {         \
    ssize_t (*const real)(int, const struct iovec *, int, offset, int) =                     \
        (ssize_t(*)(int, const struct iovec *, int, offset, int))next(#function);            \
    const int fault = isWatched(fd) ? faultOf(kWrite) : kNone;                               \
    if (fault > 0) return errno = fault, -1;                                                 \
    struct iovec first = *parts;                                                             \
    first.iov_len = part(first.iov_len);                                                     \
    return fault == kShort ? real(fd, &first, 1, at, flags) : real(fd, parts, n, at, flags); \
  }
IN_PARTS(pwritev2, off_t)
IN_PARTS(pwritev64v2, off64_t)

#define TMPFILE(function)                                           \
  FILE *function(void) {                                            \
    FILE *(*const real)(void) = (FILE * (*)(void)) next(#function); \
    const int fault = faultOf(kTmpfile);                            \
    if (fault > 0) return errno = fault, NULL;                      \
    return fault == kFull ? fopen("/dev/full", "w+b") : real();     \
  }
TMPFILE(tmpfile)
TMPFILE(tmpfile64)

int close(int fd) {
  int (*const real)(int) = (int (*)(int))next("close");
  const int fault = isWatched(fd) && fd > 2 ? faultOf(kClose) : kNone;
  watch(fd, 0);
  const int result = real(fd); /* even a close that fails lets go of the descriptor */
  if (fault > 0) return errno = fault, -1;
  return result;
}

int rename(const char *from, const char *to) {
  int (*const real)(const char *, const char *) = (int (*)(const char *, const char *))next("rename");
  const int fault = isOurs(to) ? faultOf(kRename) : kNone;
  if (fault > 0) return errno = fault, -1;
  return real(from, to);
}

int renameat2(int fromFolder, const char *from, int toFolder, const char *to, unsigned flags) {
  int (*const real)(int, const char *, int, const char *, unsigned) =
      (int (*)(int, const char *, int, const char *, unsigned))next("renameat2");
  const int fault = isOurs(to) ? faultOf(kRename) : kNone;
  if (fault > 0) return errno = fault, -1;
  return real(fromFolder, from, toFolder, to, flags);
}

int clock_gettime(clockid_t clock, struct timespec *time) {
  int (*const real)(clockid_t, struct timespec *) = (int (*)(clockid_t, struct timespec *))next("clock_gettime");
  const int result = real(clock, time);
  const int fault = faultOf(kClock);
  const time_t hours = atomic_load(&counts[kClock]);
  if (fault == kAhead) time->tv_sec += 3600 * hours;
  if (fault == kBack) time->tv_sec -= 3600 * hours;
  return result;
}

#ifdef QAV_FAULT_ALLOCATIONS
/* Under these names glibc has them too, for those who come before it; dlsym() may allocate itself. */
void *__libc_malloc(size_t bytes);
void *__libc_calloc(size_t n, size_t bytes);
void *__libc_realloc(void *memory, size_t bytes);

static int refused(void) {
  const long n = atomic_fetch_add(&allocations, 1) + 1, first = atomic_load(&firstRefused);
  if (first == 0 || n < first || n > atomic_load(&lastRefused)) return 0;
  errno = ENOMEM;
  return 1;
}

void *malloc(size_t bytes) { return refused() ? NULL : __libc_malloc(bytes); }
void *calloc(size_t n, size_t bytes) { return refused() ? NULL : __libc_calloc(n, bytes); }
void *realloc(void *memory, size_t bytes) { return refused() ? NULL : __libc_realloc(memory, bytes); }
#endif
