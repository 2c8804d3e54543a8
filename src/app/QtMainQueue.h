#pragma once

#include <QObject>
#include <QPointer>

#include "dispatch/MainQueue.h"

namespace quorin::app {

// The core's main queue on the Qt event loop: tasks run on the GUI thread in
// posting order. Tasks still queued when the queue is destroyed are dropped,
// because Qt discards events for a deleted receiver.
//
// Construct and destroy on the GUI thread, after QCoreApplication exists.
class QtMainQueue final : public dispatch::MainQueue {
 public:
  QtMainQueue();
  ~QtMainQueue() override;

  void post(dispatch::Task task) override;
  void postAfter(uint64_t delayNs, dispatch::Task task) override;
  bool isMainThread() const override;

 private:
  // The receiver of every queued call; owned here, lives on the GUI thread.
  QObject* context_;
};

}  // namespace quorin::app
