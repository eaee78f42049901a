#include "tests/tools/ProgramFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <ostream>
#include <sstream>

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
                           "events", "csr", "identity", "dev", "Exit status", "130"})
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

std::size_t longestLine(const std::string& text) {
  std::size_t longest = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) longest = std::max(longest, line.size());
  return longest;
}

const std::vector<Arguments> kHelps{{"--help"},          {"get", "--help"},  {"form", "--help"},
                                    {"image", "--help"}, {"menu", "--help"}, {"events", "--help"}};

class HelpWidthTest : public ProgramTest, public testing::WithParamInterface<unsigned short> {};

TEST_P(HelpWidthTest, IsThatOfTheTerminal) {
  for (const Arguments& arguments : kHelps) {
    PseudoTerminal terminal(GetParam());
    const Outcome outcome = runOn(terminal, arguments);
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_LE(longestLine(outcome.output), GetParam()) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("--help"));
  }
}

TEST_P(HelpWidthTest, IsInTheEnvironmentWithoutATerminal) {
  environment.push_back("COLUMNS=" + std::to_string(GetParam()));
  for (const Arguments& arguments : kHelps)
    EXPECT_LE(longestLine(run(arguments).output), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Widths, HelpWidthTest, testing::Values(40, 60, 80, 200));

TEST_F(UsageTest, HelpThatCannotBeWrittenIsAnErrorOfOutput) {
  for (const Arguments& arguments :
       {Arguments{"--help"}, Arguments{"get", "--help"}, Arguments{"--version"}}) {
    const Outcome outcome = runInto("/dev/full", arguments);
    EXPECT_EQ(outcome.exitCode, 6);
    EXPECT_EQ(outcome.errors,
              "kvlocal: standard output cannot be written: No space left on device\n");
  }
}

TEST_F(UsageTest, WhatIsWrongIsShownWithoutSteeringTheTerminal) {
  const Outcome outcome = run({"status", "\x1b[2J\u202e\xff"});
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_THAT(outcome.errors, HasSubstr("\\x1b[2J\\u{202e}\\xff\n"));
}

struct Refusal {
  Arguments arguments;
  const char* sentence;
};

void PrintTo(const Refusal& refusal, std::ostream* stream) {
  *stream << refusal.sentence;
}

class RefusalTest : public ProgramTest, public testing::WithParamInterface<Refusal> {};

TEST_P(RefusalTest, IsToldInASentence) {
  const Outcome outcome = run(GetParam().arguments);
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_THAT(outcome.errors, testing::StartsWith("kvlocal: "));
  EXPECT_THAT(outcome.errors, HasSubstr(GetParam().sentence));
}

TEST_P(RefusalTest, IsToldAsJSONToo) {
  Arguments arguments = GetParam().arguments;
  arguments.emplace_back("--json");
  const Outcome outcome = run(arguments);
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_THAT(outcome.output,
              testing::StartsWith(R"({"error":{"domain":"kvlocal","code":2,"description":")"));
  EXPECT_THAT(outcome.output, testing::EndsWith("\"}}\n"));
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, RefusalTest,
    testing::Values(
        Refusal{{"dance"}, "kvlocal: \"dance\" is no command\n"},
        Refusal{{"--timeout", "5", "dance", "/"}, "kvlocal: \"dance\" is no command\n"},
        Refusal{{"--dance"}, "kvlocal: \"--dance\" is no option\n"},
        Refusal{{"status", "--timeout", "nan"}, "\"nan\" is not a number of seconds"},
        Refusal{{"status", "--timeout", "inf"}, "\"inf\" is not a number of seconds"},
        Refusal{{"watch", "--for", "nan"}, "\"nan\" is not a number of seconds"},
        Refusal{{"events", "/", "--for", "-nan"}, "\"-nan\" is not a number of seconds"},
        Refusal{{"csr", "--identifier", ""}, "an identifier cannot be empty"},
        Refusal{{"csr", "--identifier", "\xff"}, "an identifier is UTF-8"},
        Refusal{{"status", "--notary", "\xff"}, "is not UTF-8"},
        Refusal{{"form", "/", "--file", "a=@-", "--file", "b=@-"}, "name it once"},
        Refusal{{"form", "/", "--file", "a=@b;typ=c/d"}, "\"typ\" is no parameter of a file"},
        Refusal{{"form", "/", "--file", "a=@b;type=c/d;type=e/f"}, "two are given"},
        Refusal{{"form", "/", "--file", "a=@b\nc"}, "a file name holds a control character"},
        Refusal{{"submit", "/", "--data", "/nonexistent"}, "cannot be read: No such file"},
        Refusal{{"render", "a", "--locales", "/nonexistent"}, "cannot be read: No such file"},
        Refusal{{"menu", "/", "--ids", "--activate", "a"}, "give one of them"}));

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
