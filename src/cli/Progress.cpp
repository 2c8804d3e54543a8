#include "Progress.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>

namespace quorin::cli {
namespace {

std::atomic<bool> enabled{false};

constexpr auto kFirstShowing = std::chrono::milliseconds(500);
constexpr auto kInterval = std::chrono::milliseconds(200);
constexpr const char* kEraseLine = "\r\033[K";

}  // namespace

void setProgressEnabled(bool on) { enabled.store(on, std::memory_order_relaxed); }
bool progressEnabled() { return enabled.load(std::memory_order_relaxed); }

ProgressLine::ProgressLine(std::ostream& err, std::function<std::string()> status)
    : err_(err), status_(std::move(status)) {
  if (progressEnabled()) thread_ = std::thread([this] { run(); });
}

ProgressLine::~ProgressLine() {
  if (!thread_.joinable()) return;
  {
    base::MutexLock guard(mutex_);
    stopping_ = true;
  }
  stop_.notifyAll();
  thread_.join();
}

void ProgressLine::run() {
  base::MutexLock lock(mutex_);
  if (waitForStop(kFirstShowing)) return;
  bool shown = false;
  do {
    lock.unlock();
    err_ << kEraseLine << "quorin-cli: " << status_() << std::flush;
    shown = true;
    lock.lock();
  } while (!waitForStop(kInterval));
  if (shown) err_ << kEraseLine << std::flush;
}

bool ProgressLine::waitForStop(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!stopping_) {
    if (!stop_.waitUntil(mutex_, deadline)) break;
  }
  return stopping_;
}

std::string percentText(double done, double total) {
  if (!(total > 0)) return "";
  char text[16];
  std::snprintf(text, sizeof text, "%.0f%%", std::min(100.0, 100.0 * done / total));
  return text;
}

}  // namespace quorin::cli
