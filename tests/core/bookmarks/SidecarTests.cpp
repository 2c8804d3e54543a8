#include <gtest/gtest.h>

#include "bookmarks/Sidecar.h"

namespace quorin::bookmarks {
namespace {

TEST(Sidecar, WhatIsWrittenReadsBackAndBadFilesAreRefusedWithAReason) {
  Sidecar sidecar;
  sidecar.file = {
      "/var/log/app ✓.log",      2049,
      18446744073709551615ull,   2'147'483'648,
      1'795'428'000'123'456'789, "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08"};
  sidecar.bookmarks = {{0, lineTextHash("first"), ""},
                       {41, lineTextHash("boom"), "the \"first\" error\nsee below"}};
  sidecar.lost = {{7, 12345, "gone"}};
  sidecar.notes = "# Incident\n[line 42](quorin:line/41)\n";
  sidecar.writtenNanos = 1;
  const auto read = sidecarFromJson(sidecarToJson(sidecar));
  ASSERT_TRUE(read.has_value()) << read.error().describe();
  EXPECT_EQ(*read, sidecar);

  const struct {
    const char* json;
    const char* reason;
  } cases[] = {
      {"{", "not valid JSON (byte 2)"},
      {R"({"quorinSidecar": 2, "file": {}})", "version 2 is not one this version of Quorin reads"},
      {R"({"quorinSidecar": 1})", "missing \"file\""},
      {R"({"quorinSidecar": 1, "file": {"path": "x", "device": -1, "inode": 1, "size": 0, "modifiedNanos": 0,
          "headSha256": ""}})",
       "\"device\" is negative"},
      {R"({"quorinSidecar": 1, "file": {"path": "x", "device": 1, "inode": 1, "size": 1e300, "modifiedNanos": 0,
          "headSha256": ""}})",
       "\"size\" is not a whole number"},
      {R"({"quorinSidecar": 1, "file": {"path": "x", "device": 1, "inode": 1, "size": 0, "modifiedNanos": 0,
          "headSha256": ""}, "bookmarks": [{"line": 5, "textHash": 1}, {"line": 5, "textHash": 2}]})",
       "bookmarks are not in line order"},
  };
  for (const auto& c : cases) {
    const auto refused = sidecarFromJson(c.json);
    ASSERT_FALSE(refused.has_value()) << c.json;
    EXPECT_EQ(refused.error().describe(), std::string("Not a Quorin sidecar: ") + c.reason);
  }
}

}  // namespace
}  // namespace quorin::bookmarks
