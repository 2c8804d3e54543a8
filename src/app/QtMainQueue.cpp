#include "app/QtMainQueue.h"

#include <QCoreApplication>
#include <QThread>
#include <QTimer>
#include <chrono>
#include <memory>

#include "base/Check.h"
#include "dispatch/Clock.h"

namespace quorin::app {
namespace {

// Arms a single-shot timer for whatever is left until `deadlineNs` and checks
// again when it fires: Qt timers have millisecond resolution and the contract
// is "never early".
void runAtDeadline(QObject* context, uint64_t deadlineNs, std::shared_ptr<dispatch::Task> task) {
  const uint64_t now = dispatch::monotonicNanos();
  if (now >= deadlineNs) {
    (*task)();
    return;
  }
  const auto waitMs = std::chrono::milliseconds((deadlineNs - now + 999'999) / 1'000'000);
  QTimer::singleShot(waitMs, Qt::PreciseTimer, context,
                     [context, deadlineNs, task] { runAtDeadline(context, deadlineNs, task); });
}

}  // namespace

QtMainQueue::QtMainQueue() : context_(new QObject) {
  QUORIN_CHECK(QCoreApplication::instance() != nullptr, "the Qt main queue needs a QCoreApplication");
  QUORIN_CHECK(isMainThread(), "the Qt main queue belongs to the GUI thread");
}

QtMainQueue::~QtMainQueue() { delete context_; }

void QtMainQueue::post(dispatch::Task task) {
  QMetaObject::invokeMethod(context_, std::move(task), Qt::QueuedConnection);
}

void QtMainQueue::postAfter(uint64_t delayNs, dispatch::Task task) {
  const uint64_t deadlineNs = dispatch::monotonicNanos() + delayNs;
  // Timers must be started on the thread they fire on, so hop there first.
  QMetaObject::invokeMethod(
      context_,
      [context = context_, deadlineNs, task = std::make_shared<dispatch::Task>(std::move(task))] {
        runAtDeadline(context, deadlineNs, task);
      },
      Qt::QueuedConnection);
}

bool QtMainQueue::isMainThread() const {
  return QThread::currentThread() == QCoreApplication::instance()->thread();
}

}  // namespace quorin::app
