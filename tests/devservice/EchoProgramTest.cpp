// What the development service tells of requests, and the answers that it gives on demand.
#include "tests/devservice/ProgramFixture.h"
#include "tests/support/FolderWait.h"

#include <gmock/gmock.h>

#include <fstream>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr auto kForm = "-H 'Content-Type: multipart/form-data; boundary=abcDEF012345' ";
constexpr auto kCode = " -w ' %{http_code}'";

class EchoProgramTest : public ProgramFixture {
 protected:
  void SetUp() override {
    startNotary();
    startService();
    obtainIdentity();
  }

  // The options with which curl sends these bytes.
  [[nodiscard]] std::string body(std::string_view bytes) const {
    const auto file = bus_.directory() / "request-body";
    std::ofstream(file, std::ios::binary) << bytes;
    return " --data-binary @" + file.string();
  }

  // The line comes after the answer.
  [[nodiscard]] bool isLogged(std::string_view part) const {
    return waitForFolder(bus_.directory(), service_, [&] {
      return readFile(bus_.directory() / "service.log").find(part) != std::string::npos;
    });
  }
};

TEST_F(EchoProgramTest, ShowsThePartsOfAForm) {
  const CommandResult form =
      get("echo", kForm + body("--abcDEF012345\nContent-Disposition: form-data; name=\"a\"\n\n\n"
                               "--abcDEF012345\nContent-Disposition: form-data; name=\"f\"; "
                               "filename=\"x\"\nContent-Type: b/c\n\n\xff\x01\n"
                               "--abcDEF012345--\n"));
  EXPECT_THAT(form.output,
              HasSubstr(R"("parts":[{"name":"a","size":0,"value":""},{"name":"f","filename":"x",)"
                        R"("contentType":"b/c","size":2,"valueBase64":"/wE="}],)"));
  EXPECT_THAT(form.output, HasSubstr(R"("Content-Type":"multipart/form-data; boundary=abc)"));
  EXPECT_THAT(form.output, HasSubstr(R"("bodyBase64":")"));
}

TEST_F(EchoProgramTest, TellsWhatIsWrongWithAForm) {
  EXPECT_THAT(get("echo", kForm + body("--abcDEF012345--")).output,
              HasSubstr(R"("formError":"the last boundary is not followed by)"));
  EXPECT_THAT(get("echo", "-F a=b").output, HasSubstr(R"("formError":"the boundary is not)"));
}

TEST_F(EchoProgramTest, ShowsDocuments) {
  const std::string type = "-H 'Content-Type: application/json' ";
  EXPECT_THAT(get("echo", type + body("[1, {\"a\":null}]")).output,
              AllOf(HasSubstr(R"("json":[1, {"a":null}],)"),
                    HasSubstr(R"("size":15,"body":"[1, {\"a\":null}]")")));
  EXPECT_THAT(get("echo", type + body("[1,")).output, HasSubstr(R"("jsonError":")"));
  EXPECT_THAT(get("echo", body("[1]")).output, Not(HasSubstr("json\":")));
}

TEST_F(EchoProgramTest, ServesEveryMethodThatHasABody) {
  for (const std::string method : {"POST", "PUT", "PATCH", "DELETE"}) {
    EXPECT_THAT(get("echo", "-X " + method + body("b")).output,
                AllOf(StartsWith("{\"method\":\"" + method + "\""), HasSubstr("\"body\":\"b\"")));
    // curl promises no body here, so none may be waited for.
    EXPECT_THAT(get("echo", "-X " + method).output, HasSubstr("\"size\":0,\"body\":\"\""));
  }
}

TEST_F(EchoProgramTest, BodyOfAFetchIsNotTakenForTheNextRequest) {
  const CommandResult both =
      get("echo", "-X GET" + body("GET /status HTTP/1.1\r\n\r\n") + " '" + serviceURL() + "echo'");
  EXPECT_EQ(both.status, 0);
  EXPECT_THAT(both.output, StartsWith("{\"method\":\"GET\""));
  ASSERT_TRUE(isLogged("GET /echo 200"));
  EXPECT_THAT(readFile(bus_.directory() / "service.log"), Not(HasSubstr("/status")));
}

TEST_F(EchoProgramTest, GivesTheBodyBackAsItCame) {
  const std::string content("\0\xff\r\n--", 6);
  const CommandResult back = get("echo?as=body", kForm + body(content) + " -w '%{content_type}'");
  EXPECT_EQ(back.output, content + "multipart/form-data; boundary=abcDEF012345");
}

TEST_F(EchoProgramTest, LogTellsTypeAndSizeOfABody) {
  (void)get("echo", kForm + body("12345"));
  EXPECT_TRUE(isLogged("POST /echo 200 (5 bytes of multipart/form-data; boundary=abc"));
}

TEST_F(EchoProgramTest, AnyBodyComesWithAnyStatus) {
  EXPECT_EQ(get("code?status=404&body=null", kCode).output, "null 404");
  EXPECT_EQ(get("code?status=200&body=%7Bno", kCode).output, "{no 200");
  EXPECT_EQ(get("code?status=200&body=", kCode).output, " 200");
  EXPECT_EQ(get("code?status=503", kCode + body("x")).output, "{\"status\":503} 503");
}

TEST_F(EchoProgramTest, RedirectionsHaveTheStatusAskedFor) {
  for (const std::string status : {"301", "302", "303", "307", "308"})
    EXPECT_EQ(get("redirect?to=/status&status=" + status, kCode).output, " " + status);
  for (const std::string status : {"300", "304", "305", "306", "309", "x"})
    EXPECT_THAT(get("redirect?to=/status&status=" + status, kCode).output, EndsWith(" 400"));
}

TEST_F(EchoProgramTest, LargeDocumentHasTheSizeAskedFor) {
  const std::string size = "-o /dev/null -w '%{http_code} %{size_download} %{content_type}'";
  EXPECT_EQ(get("large?megabytes=3", size).output, "200 3145757 application/json");
  EXPECT_THAT(get("large?megabytes=0").output, StartsWith("{\"count\":0,"));
  EXPECT_THAT(get("large?megabytes=1001", size).output, StartsWith("400 "));
}

TEST_F(EchoProgramTest, SlowBodyComesInPieces) {
  EXPECT_EQ(get("slow?ms=1&pieces=3").output, "{\"waited\":1}");
  EXPECT_TRUE(isLogged("slow: 2 of 3 pieces are sent"));
  EXPECT_THAT(get("slow?ms=1&pieces=0", kCode).output, EndsWith(" 400"));
}

TEST_F(EchoProgramTest, ConnectionBreaksAfterSoManyBytes) {
  constexpr int kPartialFile = 18;
  const CommandResult broken = get("reset?after=200000", "-o /dev/null -w '%{size_download}'");
  EXPECT_EQ(broken.status, kPartialFile);
  EXPECT_THAT(broken.output, EndsWith("200000"));
}

TEST_F(EchoProgramTest, ImagesHaveTypeAndRole) {
  const std::string type = "-o /dev/null -w '%{http_code} %{content_type} %{size_download}'";
  EXPECT_EQ(get("image", type).output, "200 image/png 104");
  EXPECT_THAT(get("image?format=svg&side=40&role=template", "-w '%{content_type}'").output,
              AllOf(StartsWith("<svg "), HasSubstr("width=\"40\""),
                    EndsWith("\nimage/svg+xml; role=template")));
  for (const char* query : {"format=gif", "format=svg&side=0", "side=3", "role=a%3bb"})
    EXPECT_THAT(get(std::string("image?") + query, type).output, StartsWith("400 ")) << query;
}

TEST_F(EchoProgramTest, HelpListsTheRoutes) {
  const CommandResult help = runCommand(std::string(KVL_DEVSERVICE) + " --help");
  for (const char* route : {"/status", "/echo", "/slow", "/bytes", "/large", "/code", "/redirect",
                            "/reset", "/image", "/events"})
    EXPECT_THAT(help.output, HasSubstr(route));
}

}  // namespace
}  // namespace kvltest
