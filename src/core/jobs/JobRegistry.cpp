#include "jobs/JobRegistry.h"

#include <algorithm>

namespace quorin::jobs {

void JobToken::setProgress(double fraction) {
  if (!(fraction > 0)) fraction = 0;  // NaN too
  progress_.store(std::min(fraction, 1.0), std::memory_order_relaxed);
}

std::shared_ptr<JobToken> JobRegistry::begin(std::string title) {
  base::MutexLock lock(mutex_);
  auto token = std::make_shared<JobToken>(nextId_++, std::move(title));
  tokens_.push_back(token);
  return token;
}

std::vector<std::shared_ptr<JobToken>> JobRegistry::liveLocked() const {
  std::vector<std::shared_ptr<JobToken>> live;
  std::erase_if(tokens_, [&](const std::weak_ptr<JobToken>& weak) {
    auto token = weak.lock();
    if (!token || token->isFinished()) return true;
    live.push_back(std::move(token));
    return false;
  });
  return live;
}

std::vector<JobInfo> JobRegistry::jobs() const {
  std::vector<std::shared_ptr<JobToken>> live;
  {
    base::MutexLock lock(mutex_);
    live = liveLocked();
  }
  // Tokens are released outside the lock: dropping the last reference of a
  // job that just ended must not run its destructor under our mutex.
  std::vector<JobInfo> infos;
  infos.reserve(live.size());
  for (const auto& token : live)
    infos.push_back({token->id(), token->title(), token->progress(), token->isCancelled()});
  return infos;
}

bool JobRegistry::cancel(uint64_t id) {
  std::vector<std::shared_ptr<JobToken>> live;
  {
    base::MutexLock lock(mutex_);
    live = liveLocked();
  }
  const auto it = std::ranges::find(live, id, &JobToken::id);
  if (it == live.end()) return false;
  (*it)->cancel();
  return true;
}

void JobRegistry::cancelAll() {
  std::vector<std::shared_ptr<JobToken>> live;
  {
    base::MutexLock lock(mutex_);
    live = liveLocked();
  }
  for (const auto& token : live) token->cancel();
}

}  // namespace quorin::jobs
