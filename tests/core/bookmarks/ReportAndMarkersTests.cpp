#include <gtest/gtest.h>

#include "bookmarks/IncidentReport.h"
#include "bookmarks/Markers.h"
#include "document/DocumentTestSupport.h"

namespace quorin::bookmarks {
namespace {

using document::Opened;

bool contains(const std::string& text, std::string_view part) { return text.find(part) != std::string::npos; }

TEST(IncidentReport, HoldsNotesLinkedLinesAndBookmarksWithContextAndEscapesWhatUsersWrote) {
  Opened opened(
      "12:00:00 start\n12:00:01 <script>alert(1)</script>\n12:00:02 code ``` fence\n12:00:03 ERROR \xc3\xa9 "
      "bad\n",
      false);
  const auto snapshot = opened.doc->snapshot();
  const ReportSources sources{.snapshot = &snapshot,
                              .timeOfLine = [](int64_t line) { return "12:00:0" + std::to_string(line); },
                              .contextLines = 1};
  const std::string link = lineLink({3, "12:00:03", reportLineText(snapshot, 3)});
  EXPECT_EQ(link, "[line 4 · 12:00:03 · 12:00:03 ERROR é bad](quorin:line/4)");
  EXPECT_EQ(reportLineText(snapshot, 3, 16), "12:00:03 ERROR …");  // never half a character
  const auto report = gatherReport(sources, "/var/log/app.log", {{1, "look <here>"}, {3, "the first error"}},
                                   {{9, 0, "was the restart"}}, "# What happened\nSee " + link + "\n");
  EXPECT_EQ(report.firstTime, "12:00:00");
  EXPECT_EQ(report.lineCount, 4);  // not the empty line after the last break
  EXPECT_EQ(report.lastTime, "12:00:03");
  ASSERT_EQ(report.linkedLines.size(), 1u);
  EXPECT_EQ(report.linkedLines[0].line, 3);
  ASSERT_EQ(report.bookmarks.size(), 2u);
  EXPECT_EQ(report.bookmarks[0].before.size(), 1u);
  EXPECT_EQ(report.bookmarks[0].after[0].text, "12:00:02 code ``` fence");

  const std::string md = reportMarkdown(report);
  EXPECT_TRUE(contains(md, "# Incident report: /var/log/app.log\n"));
  EXPECT_TRUE(contains(md, "- Bookmarks: 2 (1 lost)\n"));
  EXPECT_TRUE(contains(md, "### Line 2 · 12:00:01\n\n> look <here>\n"));
  EXPECT_TRUE(contains(md, "\n````text\n"));  // longer than the backticks inside
  EXPECT_TRUE(contains(md, "> 2  12:00:01 <script>"));
  EXPECT_TRUE(contains(md, "- Line 10: was the restart\n"));

  const std::string html = reportHtml(report);
  EXPECT_FALSE(contains(html, "<script>"));
  EXPECT_TRUE(contains(html, "&lt;script&gt;alert(1)&lt;/script&gt;"));
  EXPECT_TRUE(contains(html, "<blockquote>look &lt;here&gt;</blockquote>"));
  EXPECT_TRUE(contains(html, "<h3>What happened</h3>"));
  EXPECT_TRUE(contains(html, "<a href=\"#line-4\">"));
  EXPECT_TRUE(contains(html, "<p id=\"line-4\">"));
}

TEST(IncidentReport, FindsOnlyWellFormedLinksInNotes) {
  EXPECT_EQ(linkedLinesOf("[a](quorin:line/12) [b](quorin:line/0) [c](quorin:line/x) [d](quorin:line/7"),
            std::vector<int64_t>{11});
  EXPECT_EQ(linkedLinesOf("[a](quorin:line/99999999999999999999)"), std::vector<int64_t>{});
}

TEST(Markers, MarkSpansByRuleOrderAndRefuseBadRulesWithAReason) {
  CompiledMarkers markers({{.pattern = "error", .colour = MarkerColour::pink},
                           {.pattern = "err", .colour = MarkerColour::green},
                           {.pattern = "id=\\d+", .regex = true, .colour = MarkerColour::cyan},
                           {.pattern = "(", .regex = true},
                           {.pattern = "off", .enabled = false},
                           {.pattern = "cat", .wholeWord = true, .colour = MarkerColour::blue}});
  EXPECT_EQ(markers.spans("ERROR id=42 err concat cat", 0),
            (std::vector<MarkerSpan>{{0, 5, MarkerColour::pink},
                                     {6, 11, MarkerColour::cyan},
                                     {12, 15, MarkerColour::green},
                                     {23, 26, MarkerColour::blue}}));
  ASSERT_TRUE(markers.problems()[3]);
  EXPECT_TRUE(markers.problems()[3]->starts_with("Invalid regex: "));

  const std::vector<MarkerRule> rules{{.pattern = "a\"b", .regex = true, .colour = MarkerColour::grey}};
  EXPECT_EQ(markerRulesFromJson(markerRulesToJson(rules)).value(), rules);
  EXPECT_EQ(nextFreeColour(rules), MarkerColour::yellow);
  EXPECT_EQ(markerRulesFromJson(R"([{"pattern": "x", "colour": "mauve"}])").error(),
            "marker 1: unknown colour");
  EXPECT_EQ(markerRulesFromJson(R"({"pattern": "x"})").error(), "not a list of markers");
  EXPECT_EQ(markerRulesFromJson(R"([{"pattern": ""}])").error(), "marker 1: no pattern");
}

TEST(Markers, ASlowPatternIsSwitchedOffAfterOneLine) {
  CompiledMarkers markers({{.pattern = "(a|aa)+$", .regex = true}, {.pattern = "b"}},
                          std::chrono::nanoseconds(1));
  const std::string line(2000, 'a');
  markers.spans(line + "b", 1233);
  ASSERT_TRUE(markers.problems()[0]);
  EXPECT_EQ(*markers.problems()[0],
            "Marker \"(a|aa)+$\" switched off: its pattern is too slow on line 1,234");
}

}  // namespace
}  // namespace quorin::bookmarks
