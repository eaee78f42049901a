// The program with the development notary and service.
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>

#include <regex>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST_F(ServiceTest, StatusShowsTheIdentity) {
  const Outcome outcome = run({"status"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.output,
              AllOf(StartsWith("state       established\n"), HasSubstr("\nbase URL    https://"),
                    HasSubstr("\nsubject "), HasSubstr("\nissuer "), HasSubstr("\nserial "),
                    HasSubstr("\nexpires "), HasSubstr("\nanchor ")));
  EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST_F(ServiceTest, StatusAsJSONIsOneObject) {
  const Outcome outcome = run({"status", "--json"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.output,
              StartsWith(R"({"state":"established","signature":{"baseURL":"https://)"));
}

TEST_F(ServiceTest, GetWritesTheBodyByteForByte) {
  const Outcome outcome = run({"get", kDocument});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, kDocumentBytes);
}

TEST_F(ServiceTest, GetShowsHeaderFieldsWhenAskedFor) {
  const Outcome outcome = run({"get", "-i", kDocument});
  EXPECT_THAT(outcome.output, StartsWith("HTTP/"));
  EXPECT_THAT(outcome.output, HasSubstr(" 200\n"));
  EXPECT_THAT(outcome.output, testing::EndsWith("\n\n" + kDocumentBytes));
}

TEST_F(ServiceTest, GetAsJSONHoldsBytesInBase64) {
  EXPECT_THAT(run({"get", "--json", kDocument}).output,
              AllOf(HasSubstr(R"("status":200)"), HasSubstr(R"("bodyBase64":"AP8NCgr+IHRhaWwA")")));
}

TEST_F(ServiceTest, AStatusAbove400IsToldByTheExitCode) {
  const Outcome outcome = run({"get", "/there/is/no/such/document"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("HTTP status 404"));
}

TEST_F(ServiceTest, AnErrorStatusIsAnErrorInJSON) {
  const Outcome outcome = run({"get", "--json", "/there/is/no/such/document"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.output, AllOf(HasSubstr(R"("status":404)"),
                                    HasSubstr(R"("error":{"domain":"kvlocal","code":1,)")));
}

TEST_F(ServiceTest, DatesAreRFC3339) {
  constexpr auto kDate = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z";
  const std::string json = run({"status", "--json"}).output;
  for (const auto* name : {"expires", "notBefore", "notAfter"})
    EXPECT_TRUE(
        std::regex_search(json, std::regex("\"" + std::string(name) + "\":\"" + kDate + "\"")))
        << json;
  const std::string text = run({"status"}).output;
  EXPECT_TRUE(std::regex_search(text, std::regex("expires +" + std::string(kDate) + " \\(in ")))
      << text;
}

TEST_F(ServiceTest, WhatTheNotaryDidWrongIsToldInWords) {
  for (const auto* fault : {"bad-anchor", "no-url"}) {
    restartNotary({"--fault", fault});
    const Outcome outcome = run({"status"});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_THAT(outcome.errors, StartsWith("kvlocal: the notary service gave no identity: "));
    EXPECT_THAT(outcome.errors, testing::Not(HasSubstr("Unknown error")));
  }
}

TEST_F(ServiceTest, ARequestThatFailsIsToldByTheExitCode) {
  const Outcome outcome = run({"get", "https://127.0.0.1:1/"});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: the request failed: "));
  EXPECT_THAT(outcome.output, IsEmpty());
}

TEST_F(ServiceTest, ATextThatIsNoURLIsARequestThatFails) {
  EXPECT_EQ(run({"get", "not a url"}).exitCode, 4);
}

TEST_F(ServiceTest, AFailureThatMayPassIsToldToTheLastStateBeforeTheEnd) {
  constexpr int kRuns = 5;
  restartNotary({"--fault", "error"});
  for (int i = 0; i < kRuns; ++i) {
    const Outcome outcome = run({"--verbose", "events", "/events"});
    EXPECT_EQ(outcome.exitCode, 3);
    const std::string& told = outcome.errors;
    const std::size_t end = told.find("kvlocal: the notary service gave no identity: ");
    ASSERT_NE(end, std::string::npos) << told;
    EXPECT_LT(told.find("kvlocal: notarisation error: "), end) << told;
    EXPECT_LT(told.find("kvlocal: the session is recovering\n"), end) << told;
  }
}

TEST_F(ServiceTest, WatchShowsTheIdentity) {
  const Outcome outcome = runUntil("\nanchor", {"watch", "--for", "60"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, AllOf(HasSubstr("1 established"), HasSubstr("identity\n")));
}

}  // namespace
}  // namespace kvltest
