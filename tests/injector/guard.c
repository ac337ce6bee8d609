// guard.c - touches mappings whose files were cut short, under the camera library's guard, in a
// process of its own for each way that the host program may deal with SIGBUS.
#include "Guard.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Real.h"

#define CHECK(condition)                                                      \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      exit(1);                                                                \
    }                                                                         \
  } while (0)

enum { pages = 4 };
static size_t page, length;

typedef struct Mapped {
  volatile uint8_t* bytes;
  int file;
} Mapped;

static Mapped mapFile(void) {
  char path[] = "/tmp/lenslark-guard-XXXXXX";
  Mapped mapped = {NULL, mkstemp(path)};
  CHECK(mapped.file >= 0 && unlink(path) == 0);
  for (size_t at = 0; at < length; at += page) {
    CHECK(pwrite(mapped.file, "\x07", 1, (off_t)at) == 1);
  }
  CHECK(ftruncate(mapped.file, (off_t)length) == 0);
  void* address = mmap(NULL, length, PROT_READ, MAP_SHARED, mapped.file, 0);
  CHECK(address != MAP_FAILED);
  mapped.bytes = address;
  return mapped;
}

static bool guardMapped(const Mapped* mapped) { return guardBegin((void*)mapped->bytes, length); }

static void cutShort(const Mapped* mapped) { CHECK(ftruncate(mapped->file, (off_t)page) == 0); }

static void (*handlerOfSigbus(void))(int) {
  struct sigaction now;
  CHECK(sigaction(SIGBUS, NULL, &now) == 0);
  return now.sa_handler;
}

static void wholeFileReadsAsItIs(void) {
  const Mapped mapped = mapFile();
  CHECK(guardMapped(&mapped));
  CHECK(mapped.bytes[2 * page] == 7);
  CHECK(guardHolds());
  guardEnd();
}

static void missingPageReadsAsZerosAndIsToldOf(void) {
  const Mapped mapped = mapFile();
  CHECK(guardMapped(&mapped));
  cutShort(&mapped);
  errno = ENOTTY;
  CHECK(mapped.bytes[2 * page] == 0);
  CHECK(errno == ENOTTY);
  CHECK(!guardHolds());
  CHECK(mapped.bytes[3 * page] == 0);
  guardEnd();
}

static void nextGuardBeginsAnew(void) {
  missingPageReadsAsZerosAndIsToldOf();
  wholeFileReadsAsItIs();
}

static void* guardElsewhere(void* unused) {
  missingPageReadsAsZerosAndIsToldOf();
  return unused;
}

static void threadsHaveGuardsOfTheirOwn(void) {
  const Mapped mapped = mapFile();
  CHECK(guardMapped(&mapped));
  pthread_t other;
  CHECK(pthread_create(&other, NULL, guardElsewhere, NULL) == 0 && pthread_join(other, NULL) == 0);
  CHECK(guardHolds());
  cutShort(&mapped);
  CHECK(mapped.bytes[page] == 0 && !guardHolds());
  guardEnd();
}

static void touchAfterTheGuardEndsTheProgram(void) {
  const Mapped mapped = mapFile();
  CHECK(guardMapped(&mapped));
  guardEnd();
  cutShort(&mapped);
  CHECK(mapped.bytes[page] == 0);
}

static void touchOfAnotherMappingEndsTheProgram(void) {
  const Mapped guarded = mapFile();
  const Mapped other = mapFile();
  CHECK(guardMapped(&guarded));
  cutShort(&other);
  CHECK(other.bytes[page] == 0);
}

static void signalFromElsewhereEndsTheProgram(void) {
  const Mapped mapped = mapFile();
  CHECK(guardMapped(&mapped));
  CHECK(raise(SIGBUS) == 0);
}

static void ofTheHost(int number) { (void)number; }

static void handlerOfTheHostStays(void) {
  const Mapped mapped = mapFile();
  CHECK(signal(SIGBUS, ofTheHost) == SIG_DFL);
  CHECK(!guardMapped(&mapped));
  CHECK(handlerOfSigbus() == ofTheHost);
}

static void handlerThatTheHostSetsLaterStays(void) {
  const Mapped mapped = mapFile();
  CHECK(guardMapped(&mapped));
  guardEnd();
  CHECK(signal(SIGBUS, ofTheHost) != SIG_ERR);
  CHECK(!guardMapped(&mapped));
  CHECK(handlerOfSigbus() == ofTheHost);
}

static void hostThatIgnoresTheSignalGoesOnIgnoringIt(void) {
  const Mapped mapped = mapFile();
  CHECK(signal(SIGBUS, SIG_IGN) == SIG_DFL);
  CHECK(!guardMapped(&mapped));
  CHECK(handlerOfSigbus() == SIG_IGN);
}

static void threadThatBlocksTheSignalHasNoGuard(void) {
  const Mapped mapped = mapFile();
  sigset_t bus;
  CHECK(sigemptyset(&bus) == 0 && sigaddset(&bus, SIGBUS) == 0);
  CHECK(pthread_sigmask(SIG_BLOCK, &bus, NULL) == 0);
  CHECK(!guardMapped(&mapped));
  CHECK(handlerOfSigbus() == SIG_DFL);
}

// Runs a fact in a process of its own, which is to exit, or to die of SIGBUS.
static bool happens(const char* name, void (*fact)(void), bool dies) {
  fflush(stdout);
  const pid_t child = fork();
  CHECK(child >= 0);
  if (child == 0) {
    const struct rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    fact();
    exit(0);
  }
  int status;
  CHECK(waitpid(child, &status, 0) == child);
  const bool good = dies ? WIFSIGNALED(status) && WTERMSIG(status) == SIGBUS
                         : WIFEXITED(status) && WEXITSTATUS(status) == 0;
  printf("%s: %s\n", good ? "so" : "NOT SO", name);
  return good;
}

int main(void) {
  page = (size_t)sysconf(_SC_PAGESIZE);
  length = pages * page;
  realResolve();
  bool good = true;
#define HOLDS(fact) good = happens(#fact, fact, false) && good
#define DIES(fact) good = happens(#fact, fact, true) && good
  HOLDS(wholeFileReadsAsItIs);
  HOLDS(missingPageReadsAsZerosAndIsToldOf);
  HOLDS(nextGuardBeginsAnew);
  HOLDS(threadsHaveGuardsOfTheirOwn);
  DIES(touchAfterTheGuardEndsTheProgram);
  DIES(touchOfAnotherMappingEndsTheProgram);
  DIES(signalFromElsewhereEndsTheProgram);
  HOLDS(handlerOfTheHostStays);
  HOLDS(handlerThatTheHostSetsLaterStays);
  HOLDS(hostThatIgnoresTheSignalGoesOnIgnoringIt);
  HOLDS(threadThatBlocksTheSignalHasNoGuard);
  return good ? 0 : 1;
}
