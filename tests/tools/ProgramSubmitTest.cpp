// kvlocal submit with the development service.
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class SubmitTest : public ServiceTest {
 protected:
  Outcome submit(const std::string& path, const std::string& json, const Arguments& more = {}) {
    Arguments arguments{"submit", path, "--data", file("document.json", json)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }
};

TEST_F(SubmitTest, SendsADocumentAndShowsTheOneThatComesBack) {
  const Outcome outcome = submit("/echo?as=body", " { \"a\" : [1, null, true],\n\"b\":1.5}\n");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "{\"a\":[1,null,true],\"b\":1.5}\n");
  EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST_F(SubmitTest, SendsCompactJSON) {
  EXPECT_THAT(submit("/echo", "{ \"a\" : 1 }").output,
              AllOf(HasSubstr(R"("Content-Type":"application/json")"),
                    HasSubstr(R"("Accept":"application/json")"), HasSubstr(R"("body":"{\"a\":1}")"),
                    StartsWith(R"({"method":"POST")")));
}

TEST_F(SubmitTest, ABareTextGoesAsAPropertyList) {
  const Outcome outcome = submit("/echo", "\"text\"");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, HasSubstr(R"("Content-Type":"application/x-plist")"));
}

TEST_F(SubmitTest, ReadsStandardInput) {
  const Outcome outcome = runInShell("echo '[7]' | \"$0\" submit '/echo?as=body' --data -");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.errors, "[7]\n");  // both streams
}

TEST_F(SubmitTest, ShowsHeaderFieldsWhenAskedFor) {
  const Outcome outcome = submit("/echo?as=body", "[1]", {"-i"});
  EXPECT_THAT(outcome.output, StartsWith("HTTP/1.1 200\n"));
  EXPECT_THAT(outcome.output, testing::EndsWith("\n\n[1]\n"));
}

TEST_F(SubmitTest, AsJSONHoldsTheDocument) {
  EXPECT_THAT(submit("/echo?as=body", "{\"a\":1}", {"--json"}).output,
              AllOf(HasSubstr(R"("status":200)"), HasSubstr(R"("document":{"a":1}})")));
  const Outcome null = submit("/code?status=200&body=null", "{}", {"--json"});
  EXPECT_EQ(null.exitCode, 0);
  EXPECT_THAT(null.output, testing::Not(HasSubstr("document")));
}

TEST_F(SubmitTest, AnAnswerOfNullIsAnEmptyAnswer) {
  const Outcome outcome = submit("/code?status=200&body=null", "{}");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.output, IsEmpty());
}

TEST_F(SubmitTest, AnAnswerWithoutABodyIsAnEmptyAnswer) {
  for (const auto* path : {"/code?status=204&body=", "/code?status=200&body="}) {
    const Outcome outcome = submit(path, "{}");
    EXPECT_EQ(outcome.exitCode, 0) << path;
    EXPECT_THAT(outcome.output, IsEmpty());
    EXPECT_THAT(outcome.errors, IsEmpty());
  }
  const Outcome json = submit("/code?status=204&body=", "{}", {"--json"});
  EXPECT_EQ(json.exitCode, 0);
  EXPECT_THAT(json.output, AllOf(HasSubstr(R"("status":204)"), testing::EndsWith("]]}\n")));
}

TEST_F(SubmitTest, DocumentOfAnErrorStatusIsShownToo) {
  const Outcome outcome = submit("/code?status=422", "{}");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.output, "{\"status\":422}\n");
  EXPECT_THAT(outcome.errors, HasSubstr("HTTP status 422"));
}

TEST_F(SubmitTest, AnswerThatIsNoDocumentIsAFailure) {
  const Outcome outcome = submit("/code?status=200&body=no", "{}");
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: the answer is no JSON document: "));
  EXPECT_EQ(submit("/code?status=404&body=no", "{}").exitCode, 1);
  EXPECT_THAT(submit("/code?status=404&body=no", "{}", {"--json"}).output,
              AllOf(HasSubstr(R"("code":3840)"), HasSubstr(R"("status":404)")));
}

TEST_F(SubmitTest, AnErrorIsToldOnce) {
  EXPECT_THAT(submit("/code?status=200&body=no", "{}").errors,
              testing::MatchesRegex("[^\n]*\\[NSCocoaErrorDomain 3840\\]\n"));
  EXPECT_EQ(submit("/code?status=404&body=no", "{}").errors,
            "kvlocal: the service answered with HTTP status 404\n");
  const std::string errors = submit("/code?status=200&body=no", "{}").errors;
  EXPECT_EQ(errors.find("3840"), errors.rfind("3840")) << errors;
}

TEST_F(SubmitTest, ARequestThatFailsIsToldByTheExitCode) {
  const Outcome outcome = submit("https://127.0.0.1:1/", "{}");
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: the request failed: "));
}

TEST_F(SubmitTest, NullCannotBeSubmitted) {
  const Outcome outcome = submit("/echo", "null");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_THAT(outcome.errors, HasSubstr("is null, which cannot be submitted"));
}

}  // namespace
}  // namespace kvltest
