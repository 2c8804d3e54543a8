#include <gtest/gtest.h>

#include <QApplication>
#include <QSettings>
#include <cstdlib>
#include <memory>

#include "support/TempDir.h"

namespace {

// Widgets need a QApplication, made inside main's scope (gtest's main runs the environment's SetUp and
// TearDown) so that it is gone before Qt's own globals are torn down.
class QtEnvironment : public ::testing::Environment {
  void SetUp() override {
    app_ = std::make_unique<QApplication>(argc_, argv_);
    // Settings the window writes (the session, recent files) go to a private directory, never the user's.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QString::fromStdString(settingsDir_.path().string()));
    // So do the bookmarks' sidecars of the files the tests open.
    ::setenv("XDG_DATA_HOME", dataDir_.path().c_str(), 1);
  }
  void TearDown() override { app_.reset(); }

  int argc_ = 1;
  char name_[17] = "quorin_app_tests";
  char* argv_[2] = {name_, nullptr};
  std::unique_ptr<QApplication> app_;
  quorin::testing::TempDir settingsDir_;
  quorin::testing::TempDir dataDir_;
};

[[maybe_unused]] ::testing::Environment* const kQtEnvironment =
    ::testing::AddGlobalTestEnvironment(new QtEnvironment);

}  // namespace
