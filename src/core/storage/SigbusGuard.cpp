#include "storage/SigbusGuard.h"

#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>

namespace quorin::storage {
namespace {

// Trivially constructible so the signal handler reads it without running any
// TLS initialisation code.
thread_local sigjmp_buf* t_recovery = nullptr;
struct sigaction g_previous;
std::once_flag g_installed;

void onSigbus(int signal, siginfo_t* info, void* context) {
  if (sigjmp_buf* env = t_recovery) {
    t_recovery = nullptr;
    // Leave with the signal mask of the interrupted code. A sanitizer's
    // wrapper around this handler may have blocked signals (SIGBUS among
    // them) for the handler's duration and would restore them only on a
    // normal return; a second fault with SIGBUS blocked would kill us.
    if (context != nullptr)
      pthread_sigmask(SIG_SETMASK, &static_cast<ucontext_t*>(context)->uc_sigmask, nullptr);
    siglongjmp(*env, 1);
  }
  // Not a guarded copy: this fault is somebody else's (or a real bug).
  if ((g_previous.sa_flags & SA_SIGINFO) != 0 && g_previous.sa_sigaction != nullptr) {
    g_previous.sa_sigaction(signal, info, context);
    return;
  }
  if (g_previous.sa_handler != SIG_DFL && g_previous.sa_handler != SIG_IGN) {
    g_previous.sa_handler(signal);
    return;
  }
  // Restore the default action; returning re-executes the faulting access,
  // which then ends the process the usual way.
  ::signal(SIGBUS, SIG_DFL);
}

size_t pageSize() {
  static const size_t size = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

// Kept out of line and free of objects with destructors: siglongjmp must not
// skip any C++ cleanup.
__attribute__((noinline)) size_t copyPages(unsigned char* dest, const unsigned char* src, size_t count) {
  volatile size_t done = 0;
  sigjmp_buf env;
  sigjmp_buf* const outer = t_recovery;
  // savemask 0: no signal-mask system call per copy. The handler runs with
  // SA_NODEFER and restores the interrupted mask itself before jumping.
  if (sigsetjmp(env, 0) == 0) {
    t_recovery = &env;
    const size_t page = pageSize();
    while (done < count) {
      const size_t intoPage = reinterpret_cast<uintptr_t>(src + done) % page;
      const size_t chunk = std::min(count - done, page - intoPage);
      std::memcpy(dest + done, src + done, chunk);
      done = done + chunk;
    }
  }
  t_recovery = outer;
  return done;
}

}  // namespace

void installSigbusHandler() {
  std::call_once(g_installed, [] {
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_sigaction = onSigbus;
    action.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGBUS, &action, &g_previous);
  });
}

size_t guardedCopy(void* dest, const void* src, size_t count) {
  if (count == 0) return 0;
  installSigbusHandler();
  return copyPages(static_cast<unsigned char*>(dest), static_cast<const unsigned char*>(src), count);
}

}  // namespace quorin::storage
