#include <gtest/gtest.h>

#include <QColor>
#include <QComboBox>
#include <QItemSelectionModel>
#include <random>

#include "app/csv/CsvGridView.h"
#include "app/csv/CsvTableModel.h"
#include "app/find/PanelTestSupport.h"
#include "csv/DelimiterDetection.h"
#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"
#include "support/ManualExecutor.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

using testing::ManualExecutor;

// A document over `text` and a grid model over it, with every queue pumped by hand.
struct Grid {
  explicit Grid(std::string_view text, csv::CSVDelimiter delimiter = csv::CSVDelimiter::comma(),
                storage::LargeFileOpenMode mode = storage::LargeFileOpenMode::wholeFileVirtual) {
    document::OpenOptions options = testOptions(main, lineQueue);
    options.mode.mode = mode;
    document = document::Document::open(dir.write("table.csv", text).string(), options).value();
    model = std::make_unique<CsvTableModel>(document, delimiter, main, jobs, indexQueue);
    QObject::connect(model.get(), &CsvTableModel::statusMessage,
                     [this](const QString& text, bool) { messages.push_back(text); });
    QObject::connect(model.get(), &CsvTableModel::noLongerTable,
                     [this](const QString& text) { rawText.push_back(text); });
  }

  // Runs builds and whatever they post, including a rebuild due after edits.
  void settle() {
    for (int i = 0; i < 4; ++i) {
      lineQueue->runAll();
      indexQueue->runAll();
      main.advance(1'000'000'000);
    }
  }

  QString cell(int row, int column, int role = Qt::DisplayRole) const {
    return model->data(model->index(row, column), role).toString();
  }

  std::string text() const {
    return document->snapshot().text.readBytes({0, document->length()}).value_or("");
  }

  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  jobs::JobRegistry jobs;
  std::shared_ptr<ManualExecutor> lineQueue = std::make_shared<ManualExecutor>();
  std::shared_ptr<ManualExecutor> indexQueue = std::make_shared<ManualExecutor>();
  std::shared_ptr<document::Document> document;
  std::unique_ptr<CsvTableModel> model;
  std::vector<QString> messages;
  std::vector<QString> rawText;
};

std::string rows(int count, std::string_view header = "id,name,note\n", size_t noteLength = 1) {
  std::string text(header);
  for (int i = 1; i <= count; ++i)
    text += std::to_string(i) + ",name" + std::to_string(i) + "," + std::string(noteLength, 'n') + "\n";
  return text;
}

// The patched index must be the index a fresh scan of the new text builds.
void expectSameRows(const csv::CSVRecordIndex& patched, const storage::PieceTableSnapshot& text,
                    const csv::CSVDelimiter& delimiter, const std::string& context) {
  csv::CSVRecordIndex fresh(delimiter, text.totalLength());
  fresh.build(text, '\n', nullptr, 4096);
  ASSERT_EQ(patched.rowCount(), fresh.rowCount()) << context;
  ASSERT_EQ(patched.bytesScanned(), fresh.bytesScanned()) << context;
  for (int64_t row = 0; row < fresh.rowCount(); ++row) {
    ASSERT_EQ(patched.rowStart(row), fresh.rowStart(row)) << context << " row " << row;
    ASSERT_EQ(patched.fieldCount(row), fresh.fieldCount(row)) << context << " row " << row;
    ASSERT_EQ(patched.isAnomalous(row), fresh.isAnomalous(row)) << context << " row " << row;
  }
  if (patched.statistics().expectedColumns == fresh.statistics().expectedColumns) {
    EXPECT_EQ(patched.statistics(), fresh.statistics()) << context;
  }
}

TEST(AppCsvGridTest, ShowsTheHeaderRowValuesAndMalformedMarkersOnceBuilt) {
  Grid grid("id,name,note\n1,\"Doe, Jane\",\"said \"\"hi\"\"\"\n2,short\n3,\"two\nlines\",x\r\n" +
            rows(9, ""));
  // Nothing is read until the build has run; editing waits for it.
  EXPECT_TRUE(grid.model->isBuilding());
  EXPECT_EQ(grid.model->editRefusal(), "Table still indexing — cells can be edited once it finishes");
  grid.settle();
  EXPECT_FALSE(grid.model->isBuilding());

  ASSERT_EQ(grid.model->rowCount(), 12);
  ASSERT_EQ(grid.model->columnCount(), 3);
  EXPECT_EQ(grid.model->headerData(1, Qt::Horizontal).toString(), "name");
  EXPECT_EQ(grid.cell(0, 1), "Doe, Jane");
  EXPECT_EQ(grid.cell(0, 2), "said \"hi\"");
  EXPECT_EQ(grid.cell(1, 2), "");  // past the end of a short row
  EXPECT_EQ(grid.cell(2, 1), "two↵lines");
  EXPECT_EQ(grid.cell(2, 1, Qt::EditRole), "two\nlines");
  EXPECT_EQ(grid.cell(2, 2), "x");  // the CR belongs to the line ending

  // Records are numbered from the first row under the header, in the labels, the
  // count and go-to's r1234 alike; the short row is marked.
  EXPECT_EQ(grid.model->headerData(0, Qt::Vertical).toString(), "1");
  EXPECT_EQ(grid.model->headerData(1, Qt::Vertical).toString(), "2");
  EXPECT_TRUE(grid.model->headerData(1, Qt::Vertical, Qt::ForegroundRole).isValid());
  EXPECT_EQ(grid.model->headerData(1, Qt::Vertical, Qt::ToolTipRole).toString(),
            "Record 2 is malformed: 2 fields, 3 expected");
  EXPECT_FALSE(grid.model->headerData(0, Qt::Vertical, Qt::ForegroundRole).isValid());
  EXPECT_EQ(grid.messages, std::vector<QString>{"CSV parsed with 1 problematic row — see gutter markers"});
  EXPECT_EQ(grid.model->indexedRecords(), 12);

  EXPECT_EQ(grid.model->recordOffset(1), static_cast<int64_t>(grid.text().find("1,\"Doe")));
  EXPECT_EQ(grid.model->recordOffset(2), static_cast<int64_t>(grid.text().find("2,short")));
  EXPECT_EQ(grid.model->recordOffset(99),
            static_cast<int64_t>(grid.text().rfind("9,name9")));  // past the end: the last record

  // The cell holding a byte of the text (where Find and Go to land), quoted delimiters and all.
  const auto at = [&](std::string_view needle) {
    return grid.model->cellAt(static_cast<int64_t>(grid.text().find(needle)));
  };
  EXPECT_EQ(at("Jane"), grid.model->index(0, 1));
  EXPECT_EQ(at("hi"), grid.model->index(0, 2));
  EXPECT_EQ(at("short"), grid.model->index(1, 1));
  EXPECT_EQ(at("lines"), grid.model->index(2, 1));
  EXPECT_EQ(at("name"), grid.model->index(0, 1));  // the header row: the first row

  grid.model->setFirstRowIsHeader(false);
  EXPECT_EQ(grid.model->rowCount(), 13);
  EXPECT_EQ(grid.model->indexedRecords(), 13);
  EXPECT_EQ(grid.model->recordOffset(1), 0);
  EXPECT_EQ(grid.cell(0, 1), "name");
  EXPECT_EQ(grid.model->headerData(1, Qt::Horizontal).toString(), "Column 2");
}

TEST(AppCsvGridTest, ACellEditIsOneReplacementPatchedIntoTheIndexWithoutARebuild) {
  Grid grid(rows(12));
  grid.settle();
  const int64_t rowsBefore = grid.model->recordIndex()->rowCount();

  // Quoted as the value needs; a quoted field stays quoted.
  ASSERT_TRUE(grid.model->setData(grid.model->index(1, 1), "Roe, \"Rich\""));
  EXPECT_NE(grid.text().find("2,\"Roe, \"\"Rich\"\"\",n\n3,"), std::string::npos);
  EXPECT_TRUE(grid.indexQueue->tasks.empty());  // patched, not rebuilt
  EXPECT_FALSE(grid.model->isBuilding());
  EXPECT_EQ(grid.model->recordIndex()->rowCount(), rowsBefore);
  EXPECT_EQ(grid.cell(1, 1), "Roe, \"Rich\"");
  EXPECT_EQ(grid.cell(2, 1), "name3");
  expectSameRows(*grid.model->recordIndex(), grid.document->snapshot().text, csv::CSVDelimiter::comma(),
                 "edit");

  // One undo step, itself patched.
  ASSERT_TRUE(grid.document->undo());
  EXPECT_EQ(grid.text(), rows(12));
  EXPECT_FALSE(grid.model->isBuilding());
  EXPECT_EQ(grid.cell(1, 1), "name2");

  // Typing past the end of a short row pads it with fields and repairs it.
  ASSERT_TRUE(grid.document->replace({13, 22}, "1,name1", {}, {}));  // row "1,name1,n" loses its last field
  grid.settle();
  EXPECT_TRUE(grid.model->isMalformed(1));
  ASSERT_TRUE(grid.model->setData(grid.model->index(0, 2), "z"));
  EXPECT_EQ(grid.text().substr(13, 12), "1,name1,z\n2,");
  EXPECT_FALSE(grid.model->isMalformed(1));
  expectSameRows(*grid.model->recordIndex(), grid.document->snapshot().text, csv::CSVDelimiter::comma(),
                 "pad");
}

TEST(AppCsvGridTest, EditingIsRefusedPerStateWithTheExactMessages) {
  // 4 of 13 rows with a field too many: degraded.
  std::string broken = rows(9);
  for (int i = 0; i < 4; ++i) broken += "a,b,c,d\n";
  Grid degraded(broken);
  degraded.settle();
  EXPECT_EQ(degraded.model->effectiveState(), csv::CSVParseState::degraded);
  EXPECT_EQ(degraded.messages, std::vector<QString>{"CSV structure issues. Column editing disabled."});
  EXPECT_FALSE(degraded.model->setData(degraded.model->index(0, 0), "x"));
  EXPECT_EQ(degraded.messages.back(), "CSV structure issues — cell editing disabled until repaired");
  EXPECT_EQ(degraded.text(), broken);

  Grid readOnly(rows(12), csv::CSVDelimiter::comma(), storage::LargeFileOpenMode::readOnlyInspect);
  readOnly.settle();
  EXPECT_FALSE(readOnly.model->setData(readOnly.model->index(0, 0), "x"));
  EXPECT_EQ(readOnly.messages.back(), "Read-Only — cannot edit cells");

  Grid cancelled(rows(12));
  cancelled.model->cancelBuild();
  cancelled.settle();
  EXPECT_EQ(cancelled.model->editRefusal(),
            "Indexing cancelled — the table is read-only until it is indexed again");
  cancelled.model->rebuild();
  cancelled.settle();
  EXPECT_EQ(cancelled.model->editRefusal(), std::nullopt);
  EXPECT_EQ(cancelled.model->rowCount(), 12);
}

TEST(AppCsvGridTest, TextThatNoLongerParsesLeavesTheGridAndDetectionNamesTheFailure) {
  Grid grid(rows(12));
  grid.settle();
  ASSERT_TRUE(grid.document->replace({0, grid.document->length()}, "just some prose\n", {}, {}));
  EXPECT_EQ(grid.rawText, std::vector<QString>{"File no longer parses as CSV — showing raw text"});
  EXPECT_EQ(CsvGridView::detect(*grid.document), std::unexpected(QString("Could not parse as CSV.")));
}

// Random edits from the text side near the end of a table (so that the
// first 100 KiB keep it a table): after each, the index on screen must be
// what a fresh scan builds, whether the edit was patched or rebuilt.
TEST(AppCsvGridTest, RandomTextEditsKeepTheIndexEqualToAFreshScan) {
  int patched = 0, rebuilt = 0;
  for (uint32_t seed = 1; seed <= 4; ++seed) {
    Grid grid(rows(1100, "id,name,note\n", 100));
    grid.settle();
    std::mt19937 rng(seed);
    static const std::string alphabet = "ab,,\"\"\n\n\r";
    for (int step = 0; step < 40; ++step) {
      const int64_t length = grid.document->length();
      const int64_t tailStart = length - 2000;
      const int64_t at =
          tailStart + static_cast<int64_t>(rng() % static_cast<uint32_t>(length - tailStart + 1));
      const int64_t removed = std::min<int64_t>(rng() % 4, length - at);
      std::string inserted;
      for (uint32_t n = rng() % 4; n > 0; --n) inserted += alphabet[rng() % alphabet.size()];
      ASSERT_TRUE(grid.document->replace({at, at + removed}, inserted, {}, {}));
      ++(grid.model->isBuilding() ? rebuilt : patched);
      grid.settle();
      ASSERT_FALSE(grid.model->isBuilding());
      expectSameRows(*grid.model->recordIndex(), grid.document->snapshot().text, csv::CSVDelimiter::comma(),
                     "seed " + std::to_string(seed) + " step " + std::to_string(step));
    }
  }
  EXPECT_GT(patched, 100);  // both ways were taken
  EXPECT_GT(rebuilt, 3);
}

TEST(AppCsvGridTest, TheViewsPickerAppliesBuiltInAndCustomDelimitersAndRefusesBadOnes) {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  jobs::JobRegistry jobs;
  auto queue = std::make_shared<ManualExecutor>();
  auto document =
      document::Document::open(dir.write("t.tsv", rows(12, "a\tb;c\n")).string(), testOptions(main, queue))
          .value();
  CsvGridView view(document, csv::CSVDelimiter::comma(), main, jobs, nullptr, queue);
  EXPECT_EQ(view.delimiterPicker().itemText(0), "Comma (detected)");
  EXPECT_EQ(view.delimiterPicker().itemText(4), "Custom Delimiter");
  queue->runAll();
  main.runPending();
  view.table().selectionModel()->select(QItemSelection(view.model().index(0, 0), view.model().index(1, 1)),
                                        QItemSelectionModel::Select);
  EXPECT_EQ(view.table().selectedText(), "1\tname1\n2\tname2");  // what Ctrl+C copies

  EXPECT_FALSE(view.applyCustomDelimiter("\""));
  EXPECT_EQ(view.customDelimiterError(), "Delimiter must be one ASCII character (not a quote or newline)");
  ASSERT_TRUE(view.applyCustomDelimiter(";"));
  EXPECT_EQ(view.delimiterPicker().currentIndex(), 3);  // a typed built-in is shown by its name
  queue->runAll();
  main.runPending();
  view.model().sync();
  EXPECT_EQ(view.model().delimiter(), csv::CSVDelimiter::semicolon());
  EXPECT_EQ(view.model().headerData(1, Qt::Horizontal).toString(), "c");

  const auto resolve = view.recordResolver();
  EXPECT_EQ(resolve(1), 6);
}

}  // namespace
}  // namespace quorin::app
