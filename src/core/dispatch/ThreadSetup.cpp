#include "dispatch/ThreadSetup.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace quorin::dispatch {

namespace {

constexpr size_t kMaxThreadName = 15;  // the kernel's limit, without the terminating NUL
constexpr int kLowestPriorityNice = 19;

int niceIncrement(QualityOfService qos) {
  switch (qos) {
    case QualityOfService::background: return 10;
    case QualityOfService::utility: return 5;
    case QualityOfService::userInitiated:
    case QualityOfService::userInteractive: return 0;
  }
  return 0;
}

void nameCurrentThread(std::string_view name) {
  // pthread_setname_np rejects longer names outright, so keep the start rather than nothing.
  char truncated[kMaxThreadName + 1] = {};
  std::memcpy(truncated, name.data(), std::min(name.size(), kMaxThreadName));
  ::pthread_setname_np(::pthread_self(), truncated);
}

void applyQualityOfService(QualityOfService qos) {
  // The main thread's id is the process id, and its nice value is the process's baseline. Aiming
  // at baseline + increment rather than adding to the inherited value keeps a background queue
  // created from a utility thread at +10 instead of compounding to +15.
  errno = 0;
  int baseline = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::getpid()));
  if (baseline == -1 && errno != 0) return;
  int target = std::min(baseline + niceIncrement(qos), kLowestPriorityNice);
  // Linux applies nice per thread when given a thread id. Lowering it below the inherited value
  // fails without privileges, which leaves the thread as it was.
  ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), target);
}

}  // namespace

void setUpCurrentThread(std::string_view name, QualityOfService qos) {
  nameCurrentThread(name);
  applyQualityOfService(qos);
}

}  // namespace quorin::dispatch
