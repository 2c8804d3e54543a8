// The document tab's log index: starting it, keeping it current, and what
// the Go menu and the status bar ask of it.
#include <QDate>
#include <QDateTime>
#include <QFileInfo>

#include "app/DocumentTab.h"
#include "app/LogSteps.h"
#include "app/LogTexts.h"
#include "app/SeverityRulesSetting.h"
#include "app/view/TextView.h"
#include "dispatch/SerialQueue.h"
#include "logs/TimeNavigator.h"

namespace quorin::app {
namespace {

// Runs tasks on the main queue: where the log index publishes its data.
class MainQueueExecutor final : public dispatch::Executor {
 public:
  explicit MainQueueExecutor(dispatch::MainQueue& queue) : queue_(queue) {}
  void async(dispatch::Task task) override { queue_.post(std::move(task)); }

 private:
  dispatch::MainQueue& queue_;
};

QString qt(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

logs::LogSource DocumentTab::logSource() const {
  auto snapshot = doc_->snapshot();
  return {.text = std::move(snapshot.text), .lines = std::move(snapshot.lines)};
}

void DocumentTab::startLogIndex() {
  QString problem;
  rules_ = loadSeverityRules(&problem);
  if (!problem.isEmpty() && openNotice_.isEmpty()) openNotice_ = problem;
  logs::LogIndexOptions options;
  // Yearless timestamps (syslog, glog) end in the year the file was last written.
  const QFileInfo file(path());
  options.modificationYear =
      !path().isEmpty() && file.exists() ? file.lastModified().date().year() : QDate::currentDate().year();
  const logs::LogSource source = logSource();
  // Until the index publishes, the sampled format alone lets the first screen show levels and times.
  auto sampled = std::make_shared<logs::LogIndexData>();
  sampled->format = logs::sampleTimestampFormat(source);
  sampled->firstYear = options.modificationYear;
  logData_ = sampled;
  view_->setLogData(logData_, rules_);
  logQueue_ = std::make_shared<dispatch::SerialQueue>("quorin.logindex");
  logIndex_ =
      logs::LogIndex::create(rules_, options, logQueue_, std::make_shared<MainQueueExecutor>(mainQueue_),
                             [self = QPointer(this)](std::shared_ptr<const logs::LogIndexData> data) {
                               if (!self || !data) return;
                               self->logData_ = std::move(data);
                               self->logPublished_ = true;
                               self->view_->setLogData(self->logData_, self->rules_);
                               emit self->logDataChanged();
                             });
  logIndexTrailsLines_ = !source.lines.isComplete;
  logIndex_->start(source, &jobs_);
}

void DocumentTab::logIndexFollow(const document::DocumentChange& change) {
  if (!logIndex_) return;
  using Kind = document::DocumentChange::Kind;
  const logs::LogSource source = logSource();
  if (change.kind == Kind::reload || change.lineIndexRestarted) {
    // The text was read again, or line numbers past the edit are unknown for now: from scratch.
    logIndexTrailsLines_ = !source.lines.isComplete;
    logIndex_->start(source, &jobs_);
  } else if (change.kind == Kind::append) {
    logIndex_->noteAppend(source);
  } else {
    logIndex_->noteEdit(change.edit, source);
  }
}

int64_t DocumentTab::caretLine() const {
  const auto line = view_->caretPosition().line;
  return line ? *line - 1 : 0;
}

std::expected<GoToField::TimeLanding, QString> DocumentTab::landingForTime(
    const logs::TimeInput& input) const {
  // Before the first publication nothing is known, not even whether this is a log;
  // the first one has sampled the format.
  if (!logPublished_) return std::unexpected(LogTexts::notReadYet());
  const logs::LogSource source = logSource();
  const auto jump = logs::resolveTime(*logData_, source, input, caretLine());
  if (!jump) return std::unexpected(qt(jump.error().describe()));
  return GoToField::TimeLanding{.offset = source.lines.lineStart(jump->line).value_or(doc_->length()),
                                .notice = qt(jump->notice)};
}

void DocumentTab::stepToMessage(logs::Level atLeast, bool forward) {
  const logs::LogSource source = logSource();
  if (const auto line = stepToLevel(*logData_, source, rules_, caretLine(), atLeast, forward)) {
    const int64_t start = source.lines.lineStart(*line).value_or(0);
    view_->select(start, start);
    return;
  }
  if (logData_->complete) return emit statusMessage(LogTexts::noMore(atLeast, forward));
  if (!logPublished_) return emit statusMessage(LogTexts::notReadYet());
  // Still building: say how far it has read rather than nothing.
  const double total = static_cast<double>(std::max<int64_t>(source.lines.lineCount(), 1));
  const int percent =
      std::clamp(static_cast<int>(static_cast<double>(logData_->linesIndexed) * 100 / total), 0, 99);
  emit statusMessage(LogTexts::stillIndexing(atLeast, forward, percent));
}

QString DocumentTab::caretTimeText() const {
  if (!logData_->hasTimes()) return {};
  return qt(logs::describeTimeAt(*logData_, logSource(), rules_, caretLine()));
}

}  // namespace quorin::app
