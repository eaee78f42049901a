// kvlocal render, which needs neither a bus nor a service.
#include "tests/tools/ProgramFixture.h"

#include <gmock/gmock.h>

#include <fstream>

namespace kvltest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr auto kEntries = R"([
  {"find": "%D", "type": "date", "date": "2024-05-01T23:30:00Z"},
  {"find": "%T", "type": "time", "date": "2024-05-01T23:30:00Z"},
  {"find": "%L", "type": "duration", "seconds": 3725}
])";

class RenderTest : public ProgramTest {
 protected:
  RenderTest() { useLocale("de_DE.UTF-8", "Europe/Berlin"); }

  std::string file(const std::string& text) const {
    const std::string path = directory.path() / "locales.json";
    std::ofstream(path) << text;
    return path;
  }

  Outcome render(const std::string& text, const std::string& entries, const Arguments& more = {}) {
    Arguments arguments{"render", text, "--locales", file(entries)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }

  static void expectWrongFile(const Outcome& outcome, const char* why) {
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.output, IsEmpty());
    EXPECT_THAT(outcome.errors, HasSubstr(why));
  }
};

TEST_F(RenderTest, IsInTheLanguageAndTheZoneOfTheUser) {
  const Outcome outcome = render("am %D um %T, %L lang", kEntries);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "am 02.05.2024 um 01:30, 1 Stunde, 2 Minuten und 5 Sekunden lang\n");
  EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST_F(RenderTest, FollowsAnotherLanguageAndZone) {
  useLocale("en_US.UTF-8", "America/New_York");
  const Outcome outcome = render("on %D for %L", kEntries);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "on May 1, 2024 for 1 hour, 2 minutes, 5 seconds\n");
}

TEST_F(RenderTest, ReadsStandardInput) {
  const Outcome outcome = runInShell(
      R"(echo '[{"find":"%","type":"time","seconds":27000}]' | "$0" render 'um %' --locales -)");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.errors, "um 07:30\n");  // both streams
}

TEST_F(RenderTest, AsJSONTheTextIsAnEntry) {
  EXPECT_EQ(render("%L \"x\"", kEntries, {"--json"}).output,
            "{\"text\":\"1 Stunde, 2 Minuten und 5 Sekunden \\\"x\\\"\"}\n");
}

TEST_F(RenderTest, IsOneLineThatSteersNothing) {
  EXPECT_EQ(render("a\n\x1B[2Jb", "[]").output, "a\\n\\0033[2Jb\n");
}

TEST_F(RenderTest, TemplateIsTakenAsItStands) {
  EXPECT_EQ(render("[a,b] {c}", "[]").output, "[a,b] {c}\n");
  EXPECT_EQ(render("", "[]").output, "\n");
  EXPECT_EQ(render("%T", "null").output, "%T\n");
}

TEST_F(RenderTest, MistakesAreToldAndTheirTokensStay) {
  const Outcome outcome =
      render("%A %L", R"([{"find":"%A","type":"age"},{"find":"%L","type":"duration"}])");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.output, "%A 0 Sekunden\n");
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: unknown or misconfigured locale type: age"));
}

TEST_F(RenderTest, EntriesThatAreNoArrayAreTold) {
  const Outcome outcome = render("%A", "{}");
  EXPECT_EQ(outcome.output, "%A\n");
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: expect locale as array: "));
}

TEST_F(RenderTest, AFileThatIsNoJSONIsWrong) {
  expectWrongFile(render("%A", "["), "locales.json\" ist kein JSON-Dokument: ");
}

TEST_F(RenderTest, AMissingFileIsWrong) {
  expectWrongFile(run({"render", "%A", "--locales", "/nonexistent/file"}),
                  "kvlocal: \"/nonexistent/file\" kann nicht gelesen werden: ");
}

}  // namespace
}  // namespace kvltest
