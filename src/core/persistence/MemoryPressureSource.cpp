#include "persistence/MemoryPressureSource.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "base/Mutex.h"

namespace quorin::persistence {

// What posted events need: the handler, and whether the source still exists.
// Only the main thread reads or writes `alive`.
struct MemoryPressureSource::Shared {
  dispatch::MainQueue& mainQueue;
  Handler handler;
  bool alive = true;

  void post(MemoryPressureLevel level, const std::shared_ptr<Shared>& self) {
    mainQueue.post([self, level] {
      if (self->alive) self->handler(level);
    });
  }
};

namespace {

constexpr const char* kWarningTrigger = "some 150000 2000000";
constexpr const char* kCriticalTrigger = "full 150000 2000000";
constexpr int kFallbackPollMs = 2000;

base::UniqueFd openTrigger(const char* trigger) {
  base::UniqueFd fd(::open("/proc/pressure/memory", O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (fd && ::write(fd.get(), trigger, std::strlen(trigger) + 1) < 0) fd.reset();
  return fd;
}

int64_t meminfoField(std::string_view text, std::string_view field) {
  const size_t at = text.find(field);
  if (at == std::string_view::npos) return -1;
  std::string_view rest = text.substr(at + field.size());
  rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
  int64_t value = -1;
  std::from_chars(rest.data(), rest.data() + rest.size(), value);
  return value;
}

}  // namespace

std::unique_ptr<MemoryPressureSource> MemoryPressureSource::start(dispatch::MainQueue& mainQueue,
                                                                  Handler handler) {
  std::unique_ptr<MemoryPressureSource> source(new MemoryPressureSource());
  source->shared_ = std::make_shared<Shared>(Shared{mainQueue, std::move(handler)});
  source->stopFd_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  base::UniqueFd warning = openTrigger(kWarningTrigger);
  base::UniqueFd critical = warning ? openTrigger(kCriticalTrigger) : base::UniqueFd();
  source->usesPsi_ = warning && critical;
  if (source->usesPsi_) {
    // The triggers live as long as the thread that watches them.
    source->thread_ =
        std::thread([s = source.get(), warning = std::move(warning), critical = std::move(critical)] {
          s->watchTriggers(warning.get(), critical.get());
        });
  } else {
    source->thread_ = std::thread([s = source.get()] { s->pollMeminfo(); });
  }
  return source;
}

MemoryPressureSource::~MemoryPressureSource() {
  shared_->alive = false;
  const uint64_t one = 1;
  if (stopFd_) (void)::write(stopFd_.get(), &one, sizeof one);
  if (thread_.joinable()) thread_.join();
}

void MemoryPressureSource::watchTriggers(int warningFd, int criticalFd) {
  pollfd fds[3] = {{stopFd_.get(), POLLIN, 0}, {warningFd, POLLPRI, 0}, {criticalFd, POLLPRI, 0}};
  while (true) {
    if (::poll(fds, 3, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[0].revents != 0) break;
    if ((fds[1].revents | fds[2].revents) & (POLLERR | POLLNVAL)) break;  // the trigger went away
    if (fds[2].revents & POLLPRI) {
      shared_->post(MemoryPressureLevel::critical, shared_);
    } else if (fds[1].revents & POLLPRI) {
      shared_->post(MemoryPressureLevel::warning, shared_);
    }
  }
}

void MemoryPressureSource::pollMeminfo() {
  int reported = 0;  // 0 none, 1 warning, 2 critical
  pollfd stop = {stopFd_.get(), POLLIN, 0};
  while (::poll(&stop, 1, kFallbackPollMs) == 0 || (stop.revents == 0 && errno == EINTR)) {
    std::ifstream in("/proc/meminfo");
    std::ostringstream text;
    text << in.rdbuf();
    const int64_t total = meminfoField(text.str(), "MemTotal:");
    const int64_t available = meminfoField(text.str(), "MemAvailable:");
    if (total <= 0 || available < 0) continue;
    const int level = available * 20 < total ? 2 : (available * 10 < total ? 1 : 0);
    if (level > reported) {
      shared_->post(level == 2 ? MemoryPressureLevel::critical : MemoryPressureLevel::warning, shared_);
    }
    reported = level;
  }
}

namespace {

// The subscribers of each main queue's source. Subscribing, unsubscribing and
// delivering all happen on that queue's thread; the lock covers tests that
// run several queues.
struct PressureHub {
  std::unique_ptr<MemoryPressureSource> source;
  std::map<int, MemoryPressureSource::Handler> handlers;
};
base::Mutex hubsLock;
std::map<dispatch::MainQueue*, PressureHub>& hubs() REQUIRES(hubsLock) {
  static std::map<dispatch::MainQueue*, PressureHub> all;
  return all;
}
int nextToken GUARDED_BY(hubsLock) = 1;

}  // namespace

std::unique_ptr<MemoryPressureSubscription> MemoryPressureSubscription::subscribe(
    dispatch::MainQueue& mainQueue, MemoryPressureSource::Handler handler) {
  base::MutexLock guard(hubsLock);
  PressureHub& hub = hubs()[&mainQueue];
  const int token = nextToken++;
  hub.handlers.emplace(token, std::move(handler));
  if (!hub.source) {
    hub.source = MemoryPressureSource::start(mainQueue, [queue = &mainQueue](MemoryPressureLevel level) {
      std::vector<MemoryPressureSource::Handler> handlers;
      {
        base::MutexLock guard(hubsLock);
        const auto hub = hubs().find(queue);
        if (hub == hubs().end()) return;
        for (const auto& [token, h] : hub->second.handlers) handlers.push_back(h);
      }
      for (const auto& h : handlers) h(level);
    });
  }
  return std::unique_ptr<MemoryPressureSubscription>(new MemoryPressureSubscription(mainQueue, token));
}

MemoryPressureSubscription::~MemoryPressureSubscription() {
  std::unique_ptr<MemoryPressureSource> last;  // stopped outside the lock: its thread may be delivering
  {
    base::MutexLock guard(hubsLock);
    auto hub = hubs().find(&queue_);
    hub->second.handlers.erase(token_);
    if (hub->second.handlers.empty()) {
      last = std::move(hub->second.source);
      hubs().erase(hub);
    }
  }
}

}  // namespace quorin::persistence
