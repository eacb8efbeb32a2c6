// Traces, and the pages that show them.
#include "quillon/timeline/timeline.h"

#include <gmock/gmock.h>

#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "quillon/base/files.h"
#include "quillon/timeline/html_text.h"
#include "quillon/timeline/timeline_page.h"
#include "quillon/timeline/timeline_picture.h"
#include "tests/support/temporary_directory.h"

namespace quillon::timeline {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

class TimelineTest : public ::testing::Test {
 protected:
  Expected<Timeline> read(const std::string& content) {
    std::ofstream(file_, std::ios::binary) << content;
    return readTimeline(file_);
  }
  // The content of a trace after closeTrace().
  std::string closed(const std::string& content) {
    std::ofstream(file_, std::ios::binary) << content;
    EXPECT_TRUE(closeTrace(file_));
    return readWholeFile(file_, kMaxTextSize).value_or("none");
  }
  Expected<Timeline> readAgain() { return readTimeline(file_); }

 private:
  test::TemporaryDirectory directory_;
  std::filesystem::path file_ = directory_.path() / "trace.json";
};

constexpr char kLaunch[] = R"([
{"ph":"B","pid":7,"tid":7,"ts":100.0,"name":"outer"},
{"ph":"i","pid":7,"tid":7,"ts":150.5,"s":"p","cat":"marker","name":"milestone"},
{"ph":"B","pid":7,"tid":7,"ts":200.0,"name":"inner"},
{"ph":"B","pid":7,"tid":8,"ts":210.0,"name":"beside"},
{"ph":"E","pid":7,"tid":7,"ts":300.0},
{"ph":"E","pid":7,"tid":8,"ts":310.0},
{"ph":"E","pid":7,"tid":7,"ts":400.0},
)";

TEST_F(TimelineTest, HasEverySpanAndMarkOfEachThread) {
  const auto timeline = read(kLaunch);
  ASSERT_TRUE(timeline);
  EXPECT_EQ(timeline->end, 300);
  ASSERT_THAT(timeline->threads, SizeIs(2));
  const auto& main = timeline->threads[0].entries;
  ASSERT_THAT(main, SizeIs(3));
  EXPECT_EQ(main[0].name, "outer");
  EXPECT_EQ(main[0].start, 0);
  EXPECT_EQ(main[0].end, 300);
  EXPECT_EQ(main[0].depth, 0);
  EXPECT_FALSE(main[0].isOpen);
  EXPECT_TRUE(main[1].isMark);
  EXPECT_EQ(main[1].start, 50.5);
  EXPECT_EQ(main[1].depth, 1);
  EXPECT_EQ(main[2].start, 100);
  EXPECT_EQ(main[2].end, 200);
  EXPECT_EQ(main[2].depth, 1);
  const auto& beside = timeline->threads[1].entries;
  ASSERT_THAT(beside, SizeIs(1));
  EXPECT_EQ(beside[0].end - beside[0].start, 100);
  EXPECT_EQ(beside[0].depth, 0);
}

TEST_F(TimelineTest, PictureAloneIsAnSvgFileWithItsOwnRules) {
  auto timeline = read(kLaunch);
  ASSERT_TRUE(timeline);
  EXPECT_EQ(timeline->origin, 100);
  timeline->threads[1].title = "a <launch>";
  const std::string picture = timelinePicture(*timeline);
  EXPECT_THAT(picture, StartsWith("<svg xmlns='http://www.w3.org/2000/svg'"));
  EXPECT_THAT(picture, HasSubstr("<style>"));
  EXPECT_THAT(picture, HasSubstr("prefers-color-scheme: dark"));
  EXPECT_THAT(picture, HasSubstr(">process 7</text>"));
  EXPECT_THAT(picture, HasSubstr(">a &lt;launch&gt;</text>"));
  EXPECT_THAT(picture, Not(HasSubstr("url(")));
}

TEST_F(TimelineTest, SpansOfAProcessThatDiedReachTheEndAndAreOpen) {
  const auto timeline = read(std::string(kLaunch) +
                             "{\"ph\":\"B\",\"pid\":7,\"tid\":7,\"ts\":500,\"name\":\"last\"},\n"
                             "{\"ph\":\"i\",\"pid\":6,\"tid\":6,\"ts\":900,\"name\":\"death\"},\n"
                             "{\"ph\":\"B\",\"pid\":7,\"tid\":7,\"ts\":6");
  ASSERT_TRUE(timeline);
  const auto& last = timeline->threads[0].entries.back();
  EXPECT_EQ(last.name, "last");
  EXPECT_TRUE(last.isOpen);
  EXPECT_EQ(last.end, 800);
  EXPECT_THAT(timelinePage(*timeline, "t"), HasSubstr("did not end"));
}

TEST_F(TimelineTest, IgnoresEndsWithoutAStartAndOtherLines) {
  const auto timeline = read(
      "[\n{\"ph\":\"E\",\"pid\":1,\"tid\":1,\"ts\":1},\nnonsense\n[1],\n"
      "{\"ph\":\"X\",\"pid\":1,\"tid\":1,\"ts\":1,\"name\":\"complete\"},\n"
      "{\"ph\":5,\"pid\":\"x\",\"ts\":\"y\",\"name\":[]},\n"
      "{\"ph\":\"i\",\"pid\":1,\"tid\":1,\"ts\":2,\"name\":\"m\"},\n");
  ASSERT_TRUE(timeline);
  ASSERT_THAT(timeline->threads, SizeIs(1));
  EXPECT_THAT(timeline->threads[0].entries, SizeIs(1));
}

TEST_F(TimelineTest, IgnoresNumbersThatNoProcessOrClockHas) {
  const auto timeline = read(
      "{\"ph\":\"i\",\"pid\":1e300,\"tid\":99999999999,\"ts\":-1e308,\"name\":\"first\"},\n"
      "{\"ph\":\"i\",\"pid\":1.5,\"ts\":1e308,\"name\":\"too late\"},\n");
  ASSERT_TRUE(timeline);
  ASSERT_THAT(timeline->threads, SizeIs(1));
  EXPECT_EQ(timeline->threads[0].process, 0);
  EXPECT_EQ(timeline->threads[0].thread, 0);
  EXPECT_THAT(timeline->threads[0].entries, SizeIs(1));
  EXPECT_EQ(timeline->end, 0);
}

TEST_F(TimelineTest, AClosedTraceIsACompleteArray) {
  EXPECT_EQ(closed("[\n"), "[\n]\n");
  EXPECT_EQ(closed(""), "[\n]\n");
  EXPECT_EQ(closed("[\n{\"a\":1},\n{\"b\":2},\n"), "[\n{\"a\":1},\n{\"b\":2}\n]\n");
  EXPECT_EQ(closed("[\n{\"a\":1},\n{\"cut\":"), "[\n{\"a\":1}\n]\n");
  closed(kLaunch);
  const auto timeline = readAgain();
  ASSERT_TRUE(timeline);
  EXPECT_EQ(timeline->end, 300);
}

TEST_F(TimelineTest, ATraceWithoutEventsIsAFailureThatNamesIt) {
  for (const char* content : {"", "[\n", "no trace"}) {
    const auto timeline = read(content);
    ASSERT_FALSE(timeline) << content;
    EXPECT_THAT(timeline.error().what, HasSubstr("trace.json' holds no event"));
  }
  EXPECT_THAT(readTimeline("/nonexistent/trace.json").error().what, HasSubstr("cannot read"));
}

TEST_F(TimelineTest, ThePageNamesEverySpanAndMark) {
  const auto timeline = read(kLaunch);
  const std::string page = timelinePage(*timeline, "the title");
  for (const char* text :
       {">outer</span>", ">inner</span>", ">beside</span>", ">milestone</span>", "thread 8</h2>",
        "<title>the title</title>", ">0.300 ms</span>", ">at 0.051 ms</span>"}) {
    EXPECT_THAT(page, HasSubstr(text));
  }
}

// Searches for everything that could load a file: addresses, imports, and elements with a source.
TEST_F(TimelineTest, ThePageNeedsNoOtherFiles) {
  const auto timeline = read(kLaunch);
  const std::string page = timelinePage(*timeline, "t");
  for (const char* outside : {"http:", "https:", "src=", "href", "url(", "@import", "fetch(",
                              "<link", "<img", "<iframe", "<object", "import("}) {
    EXPECT_THAT(page, Not(HasSubstr(outside)));
  }
  EXPECT_THAT(page, HasSubstr("prefers-color-scheme: dark"));
}

TEST_F(TimelineTest, NamesCannotBecomeMarkup) {
  const auto timeline = read(
      "[\n{\"ph\":\"i\",\"pid\":1,\"tid\":1,\"ts\":2,"
      "\"name\":\"</text><script>alert('x')</script>&\\\"\\u0001\"},\n");
  const std::string page = timelinePage(*timeline, "</title><script>alert('y')");
  EXPECT_THAT(page, Not(HasSubstr("<script>alert")));
  EXPECT_THAT(page, HasSubstr("&lt;/text&gt;&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;&amp;"
                              "&quot; "));
  EXPECT_THAT(page, HasSubstr("&lt;/title&gt;&lt;script&gt;alert(&#39;y&#39;)"));
}

TEST_F(TimelineTest, ThePicturesNamesCannotBecomeMarkup) {
  const auto timeline = read("{\"ph\":\"i\",\"pid\":1,\"ts\":2,\"name\":\"</text><script>\"},\n");
  EXPECT_THAT(timelinePicture(*timeline), Not(HasSubstr("<script>")));
}

// The y coordinate of every row of the picture.
std::multiset<std::string> tops(const std::string& page) {
  const std::regex stripe("class='stripe' x='0' y='([0-9]+)'");
  std::multiset<std::string> found;
  for (std::sregex_iterator match(page.begin(), page.end(), stripe), end; match != end; ++match) {
    found.insert((*match)[1].str());
  }
  return found;
}

TEST_F(TimelineTest, RowsDoNotOverlap) {
  const auto timeline = read(kLaunch);
  const auto found = tops(timelinePicture(*timeline));
  EXPECT_THAT(found, SizeIs(4));
  EXPECT_EQ(std::set<std::string>(found.begin(), found.end()).size(), found.size());
}

TEST(HtmlText, NumbersLoseTrailingZeros) {
  EXPECT_EQ(withoutTrailingZeros("2.50"), "2.5");
  EXPECT_EQ(withoutTrailingZeros("10.00"), "10");
  EXPECT_EQ(withoutTrailingZeros("100"), "100");
}

}  // namespace
}  // namespace quillon::timeline
