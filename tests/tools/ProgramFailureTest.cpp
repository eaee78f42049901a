// The program without a notary.
#include "tests/tools/ProgramFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace kvltest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr auto kUnreachable = "kvlocal: the notary service cannot be reached: ";

class FailureTest : public ProgramTest {};

TEST_F(FailureTest, StatusWithoutABusSaysThatTheNotaryCannotBeReached) {
  const Outcome outcome = run({"status"});
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(outcome.errors, MatchesRegex(std::string(kUnreachable) + ".+\n"));
  EXPECT_THAT(outcome.output, MatchesRegex("state +disconnected\n"));
}

TEST_F(FailureTest, StatusWithoutANotarySaysTheSame) {
  const PrivateBus bus;
  useBus(bus.address());
  const Outcome outcome = run({"status"});
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(outcome.errors, StartsWith(kUnreachable));
}

TEST_F(FailureTest, StatusTellsTheErrorAsJSONToo) {
  const Outcome outcome = run({"--json", "status"});
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(outcome.output, StartsWith(R"({"state":"disconnected","error":{"domain":)"));
  EXPECT_THAT(outcome.output, HasSubstr(R"("code":4099)"));
}

TEST_F(FailureTest, GetWritesNothingToItsOutput) {
  const Outcome outcome = run({"get", "/"});
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_THAT(outcome.errors, StartsWith(kUnreachable));
}

TEST_F(FailureTest, WhateverIsSentNeedsAnIdentity) {
  std::ofstream(directory.path() / "document") << "{}";
  for (const Arguments& command :
       {Arguments{"submit", "/", "--data", directory.path() / "document"}, Arguments{"form", "/"},
        Arguments{"image", "/", "-o", directory.path() / "image"}}) {
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_THAT(outcome.output, IsEmpty());
    EXPECT_THAT(outcome.errors, StartsWith(kUnreachable));
  }
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "image"));
}

TEST_F(FailureTest, EveryCommandTellsTheErrorAsJSON) {
  std::ofstream(directory.path() / "document") << "{}";
  for (const Arguments& command :
       {Arguments{"get", "/"}, Arguments{"submit", "/", "--data", directory.path() / "document"},
        Arguments{"form", "/"}, Arguments{"image", "/"}, Arguments{"menu", "/"},
        Arguments{"events", "/"}}) {
    Arguments arguments = command;
    arguments.emplace_back("--json");
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_THAT(outcome.output,
                StartsWith(R"({"error":{"domain":"NSCocoaErrorDomain","code":4099,)"))
        << command.front();
    EXPECT_THAT(outcome.output, testing::EndsWith("}}\n"));
  }
}

TEST_F(FailureTest, ATimeoutThatPassesIsToldAsJSON) {
  EXPECT_THAT(run({"get", "/", "--timeout", "0", "--json"}).output,
              StartsWith(R"({"error":{"domain":)"));
}

TEST_F(FailureTest, AnErrorIsToldOnce) {
  const std::string errors = run({"status"}).errors;
  EXPECT_EQ(errors.find("cannot be reached"), errors.rfind("cannot be reached")) << errors;
  EXPECT_EQ(errors.find("4099"), errors.rfind("4099")) << errors;
}

TEST_F(FailureTest, FilesThatCannotBeSentAreNamedBeforeAnythingIsAsked) {
  std::ofstream(directory.path() / "broken") << "{\"a\":";
  const Outcome broken = run({"submit", "/", "--data", directory.path() / "broken"});
  EXPECT_EQ(broken.exitCode, 2);
  EXPECT_THAT(broken.errors, HasSubstr("/broken\" is no JSON document: "));
  const Outcome missing = run({"form", "/", "--file", "f=@/nonexistent/file"});
  EXPECT_EQ(missing.errors,
            "kvlocal: \"/nonexistent/file\" cannot be read: No such file or directory\n");
  const Outcome folder = run({"submit", "/", "--data", "/"});
  EXPECT_EQ(folder.errors, "kvlocal: \"/\" cannot be read: Is a directory\n");
}

TEST_F(FailureTest, InputThatIsClosedCannotBeRead) {
  const Outcome outcome = runInShell("exec \"$0\" submit / --data - <&-");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_EQ(outcome.errors, "kvlocal: \"-\" cannot be read: Bad file descriptor\n");
}

TEST_F(FailureTest, EventsNeedAnIdentityToBegin) {
  const Outcome outcome = run({"events", "/events"});
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_THAT(outcome.errors, StartsWith(kUnreachable));
  EXPECT_EQ(run({"events", "/events", "--timeout", "0.2"}).exitCode, 3);
}

TEST_F(FailureTest, ATimeoutThatPassesEndsTheTrying) {
  EXPECT_EQ(run({"status", "--timeout", "0.2"}).exitCode, 3);
}

TEST_F(FailureTest, LogLinesAppearOnlyWhenAskedFor) {
  EXPECT_THAT(run({"status"}).errors, testing::Not(HasSubstr("notarisation error: ")));
  EXPECT_THAT(run({"status", "--verbose"}).errors, HasSubstr("kvlocal: notarisation error: "));
}

// Both come from other threads.
TEST_F(FailureTest, LogLinesAndStatesComeBeforeTheEnd) {
  constexpr int kRuns = 5;
  for (int i = 0; i < kRuns; ++i) {
    const std::string told = run({"--verbose", "events", "/events"}).errors;
    const std::size_t end = told.find(kUnreachable);
    ASSERT_NE(end, std::string::npos) << told;
    EXPECT_LT(told.find("kvlocal: notarisation error: "), end) << told;
    EXPECT_LT(told.find("kvlocal: the session is disconnected\n"), end) << told;
  }
}

TEST_F(FailureTest, SigningRequestNeedsNoNotary) {
  const Outcome outcome = run({"csr"});
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.output, StartsWith("-----BEGIN CERTIFICATE REQUEST-----\n"));
  EXPECT_THAT(outcome.output, testing::EndsWith("\n-----END CERTIFICATE REQUEST-----\n"));
}

TEST_F(FailureTest, SigningRequestWithoutKeysCannotBeMade) {
  const std::string tooLongForKeyStores(1025, 'a');
  const Outcome outcome = run({"csr", "--identifier", tooLongForKeyStores});
  EXPECT_EQ(outcome.exitCode, 5);
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_THAT(outcome.errors, HasSubstr("no signing request"));
  EXPECT_THAT(run({"csr", "--json", "--identifier", tooLongForKeyStores}).output,
              StartsWith(R"({"error":{"domain":"kvlocal","code":5,)"));
}

TEST_F(FailureTest, OutputThatCannotBeWrittenIsAnErrorOfItsOwn) {
  const Outcome outcome = runInto("/dev/full", {"csr"});
  EXPECT_EQ(outcome.exitCode, 6);
  EXPECT_THAT(outcome.errors, HasSubstr("No space left on device"));
}

TEST_F(FailureTest, OutputThatIsClosedIsNotTakenByAnythingElse) {
  const Outcome outcome = runInShell("exec \"$0\" csr >&-");
  EXPECT_EQ(outcome.exitCode, 6);
  EXPECT_EQ(outcome.errors, "kvlocal: standard output cannot be written: Bad file descriptor\n");
}

TEST_F(FailureTest, ErrorsThatNobodyWantsHarmNothing) {
  const Outcome outcome = runInShell("exec \"$0\" status 2>&- <&-");
  EXPECT_EQ(outcome.exitCode, 3);
  EXPECT_THAT(outcome.errors, MatchesRegex("state +disconnected\n"));
}

TEST_F(FailureTest, WatchEndsAfterSoManyChanges) {
  const Outcome outcome = run({"watch", "--json", "--count", "2"});
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 2);
}

TEST_F(FailureTest, WatchShowsTheStateOfAFailure) {
  const Outcome outcome =
      runUntil(R"({"state":"disconnected","value":2})", {"watch", "--json", "--for", "60"});
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.output, HasSubstr(R"({"state":"disconnected","value":2})"));
}

TEST_F(FailureTest, WatchShowsTheTextsOfAFailure) {
  const Outcome outcome = runUntil("Retrying every 15 seconds\n", {"watch", "--for", "60"});
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.output, HasSubstr("progress    Reconnecting\u2026\n            "));
}

TEST_F(FailureTest, WatchForNoTimeAtAllEndsAtOnce) {
  EXPECT_EQ(run({"watch", "--for", "0"}).exitCode, 0);
}

class SignalTest : public ProgramTest, public testing::WithParamInterface<int> {};

TEST_P(SignalTest, EndsWatchingCleanly) {
  const Outcome outcome = runUntil("\n", {"watch"}, GetParam());
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.errors, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Signals, SignalTest, testing::Values(SIGINT, SIGTERM, SIGHUP));

}  // namespace
}  // namespace kvltest
