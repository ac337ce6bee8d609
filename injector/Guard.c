#include "Guard.h"

#include <errno.h>
#include <signal.h>
#include <stdint.h>
#include <sys/mman.h>

#include "Real.h"

typedef struct Guarded {
  char* address;  // NULL without a guard.
  size_t length;
  bool missed;
} Guarded;

// Where a signal handler finds it without a call that may allocate.
static _Thread_local volatile Guarded guarded __attribute__((tls_model("initial-exec")));

static bool isGuarded(const void* touched) {
  const uintptr_t begin = (uintptr_t)guarded.address;
  return begin != 0 && (uintptr_t)touched - begin < guarded.length;
}

static void endAsUsual(const siginfo_t* info) {
  signal(SIGBUS, SIG_DFL);
  // What an instruction has raised it raises again.
  if (info->si_code <= 0) raise(SIGBUS);
}

static void onMissingPage(int number, siginfo_t* info, void* context) {
  (void)number;
  (void)context;
  const int error = errno;
  const int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED;
  if (info->si_code > 0 && isGuarded(info->si_addr) &&
      realMmap(guarded.address, guarded.length, PROT_READ, flags, -1, 0) != MAP_FAILED) {
    guarded.missed = true;
  } else {
    endAsUsual(info);
  }
  errno = error;
}

static bool isOurs(const struct sigaction* action) {
  return (action->sa_flags & SA_SIGINFO) && action->sa_sigaction == onMissingPage;
}

static bool isNobodys(const struct sigaction* action) {
  return !(action->sa_flags & SA_SIGINFO) && action->sa_handler == SIG_DFL;
}

static bool setHandler(void) {
  struct sigaction ours = {.sa_sigaction = onMissingPage,
                           .sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART};
  struct sigaction before;
  sigemptyset(&ours.sa_mask);
  if (sigaction(SIGBUS, &ours, &before) != 0) return false;
  if (isNobodys(&before) || isOurs(&before)) return true;
  // The host was quicker by a moment.
  sigaction(SIGBUS, &before, NULL);
  return false;
}

static bool isHandled(void) {
  struct sigaction now;
  if (sigaction(SIGBUS, NULL, &now) != 0) return false;
  return isOurs(&now) || (isNobodys(&now) && setHandler());
}

// The kernel ends a program that blocks what one of its own instructions raises.
static bool isBlocked(void) {
  sigset_t blocked;
  return pthread_sigmask(SIG_BLOCK, NULL, &blocked) != 0 || sigismember(&blocked, SIGBUS) != 0;
}

bool guardBegin(void* address, size_t length) {
  if (isBlocked() || !isHandled()) return false;
  guarded.length = length;
  guarded.missed = false;
  guarded.address = address;
  return true;
}

bool guardHolds(void) { return !guarded.missed; }

void guardEnd(void) { guarded.address = NULL; }
