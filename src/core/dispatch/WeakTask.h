#pragma once

#include <memory>
#include <utility>

#include "dispatch/Task.h"

namespace quorin::dispatch {

// Wraps a callback on an owner so that it runs only while the owner is alive: the task holds the
// owner weakly, so queued work neither keeps a closed document alive nor runs against a destroyed
// one. While fn runs the task holds a strong reference, so if everyone else let go meanwhile the
// owner is destroyed on the task's thread when fn returns.
// fn is called as fn(T&) and must be copyable, like every Task.
template <class T, class F>
Task weakTask(std::weak_ptr<T> owner, F fn) {
  return [owner = std::move(owner), fn = std::move(fn)]() mutable {
    if (std::shared_ptr<T> strong = owner.lock()) fn(*strong);
  };
}

}  // namespace quorin::dispatch
