#include "tests/tools/ProgramFixture.h"

#include <gmock/gmock.h>

namespace kvltest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class UsageTest : public ProgramTest {};

TEST_F(UsageTest, HelpNamesCommandsAndExitCodes) {
  const Outcome outcome = run({"--help"});
  EXPECT_EQ(outcome.exitCode, 0);
  for (const auto* text : {"status", "get", "submit", "form", "image", "menu", "render", "watch",
                           "events", "csr", "Exit status", "130"})
    EXPECT_THAT(outcome.output, HasSubstr(text));
  EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST_F(UsageTest, EveryCommandHasHelpOfItsOwn) {
  EXPECT_THAT(run({"get", "--help"}).output, HasSubstr("--include"));
  EXPECT_THAT(run({"submit", "--help"}).output, HasSubstr("--data"));
  EXPECT_THAT(run({"form", "--help"}).output, HasSubstr("NAME=@PATH[;type=TYPE][;filename=NAME]"));
  EXPECT_THAT(run({"image", "--help"}).output, HasSubstr("--size"));
  EXPECT_THAT(run({"menu", "--help"}).output, HasSubstr("--activate"));
  EXPECT_THAT(run({"render", "--help"}).output, HasSubstr("--locales"));
  EXPECT_THAT(run({"watch", "--help"}).output, HasSubstr("--count"));
  EXPECT_THAT(run({"events", "--help"}).output, HasSubstr("--last-event-id"));
}

TEST_F(UsageTest, VersionIsOneLine) {
  const Outcome outcome = run({"--version"});
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.output, testing::MatchesRegex("kvlocal [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

class WrongUsageTest : public ProgramTest, public testing::WithParamInterface<Arguments> {};

TEST_P(WrongUsageTest, EndsWithStatus2AndAMessage) {
  const Outcome outcome = run(GetParam());
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_THAT(outcome.errors, Not(IsEmpty()));
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, WrongUsageTest,
    testing::Values(
        Arguments{}, Arguments{"dance"}, Arguments{"get"}, Arguments{"get", "/", "/more"},
        Arguments{"submit", "/"}, Arguments{"submit", "--data", "/dev/null"},
        Arguments{"submit", "/", "--data", "/nonexistent/file"},
        Arguments{"submit", "/", "--data", "/dev/null"}, Arguments{"submit", "/", "--data", "/"},
        Arguments{"form"}, Arguments{"form", "https://localhost/"},
        Arguments{"form", "/", "--input"}, Arguments{"form", "/", "--input", "name"},
        Arguments{"form", "/", "--input", "na\"me=value"},
        Arguments{"form", "/", "--input", "a=b", "c=d"},
        Arguments{"form", "/", "--file", "name=path"}, Arguments{"form", "/", "--file", "name=@"},
        Arguments{"form", "/", "--file", "name=@/nonexistent"}, Arguments{"image"},
        Arguments{"image", "/", "-o"}, Arguments{"image", "/", "--size", "16"},
        Arguments{"image", "/", "--size", "0x16"}, Arguments{"image", "/", "--json", "-o", "-"},
        Arguments{"menu"}, Arguments{"menu", "/", "/more"}, Arguments{"menu", "/", "--activate"},
        Arguments{"render", "text"}, Arguments{"render", "--locales", "/dev/null"},
        Arguments{"status", "--timeout", "soon"}, Arguments{"status", "--timeout", "-1"},
        Arguments{"watch", "--count", "-1"}, Arguments{"watch", "--for", "1e300"},
        Arguments{"events"}, Arguments{"events", ""}, Arguments{"events", "not a URL"},
        Arguments{"events", "ftp://localhost/events"}, Arguments{"events", "/events", "/more"},
        Arguments{"events", "/events", "--count", "-1"},
        Arguments{"events", "/events", "--for", "1e300"},
        Arguments{"events", "/events", "--last-event-id"},
        Arguments{"events", "/events", "--last-event-id", "1\n2"}, Arguments{"--notary"},
        Arguments{"status", "csr"}));

class WrongCountTest : public ProgramTest, public testing::WithParamInterface<const char*> {};

TEST_P(WrongCountTest, IsNamedWithWhatIsAllowed) {
  for (const Arguments& command : {Arguments{"watch"}, Arguments{"events", "/events"}}) {
    Arguments arguments = command;
    arguments.insert(arguments.end(), {"--count", GetParam()});
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_THAT(outcome.errors,
                HasSubstr("--count: \"" + std::string(GetParam()) +
                          "\" is not a whole number from 0 to 9223372036854775807\n"));
  }
}

INSTANTIATE_TEST_SUITE_P(Values, WrongCountTest,
                         testing::Values("x", "1.5", "-1", "1e3", "7 ", "9223372036854775808"));

}  // namespace
}  // namespace kvltest
