#include "tests/devservice/ProgramFixture.h"
#include "tests/devservice/RecordClient.h"

#include <gmock/gmock.h>

namespace kvltest {
namespace {

using testing::HasSubstr;

class DesktopProgramTest : public ProgramFixture {
 protected:
  void SetUp() override {
    startNotary();
    startService();
    obtainIdentity();
  }
};

TEST_F(DesktopProgramTest, MenusNameIconsThatAreThere) {
  const std::string menus = get("desktop").output;
  const std::string start = "\"/icon/";
  int icons = 0;
  for (auto at = menus.find(start); at != std::string::npos; at = menus.find(start, at + 1)) {
    const auto name = menus.substr(at + 2, menus.find('"', at + 1) - at - 2);
    EXPECT_THAT(get(name).output, testing::StartsWith("<svg ")) << name;
    ++icons;
  }
  EXPECT_GE(icons, 10);
}

TEST_F(DesktopProgramTest, IconsAreTemplates) {
  EXPECT_THAT(get("icon/clock", "-i").output,
              HasSubstr("Content-Type: image/svg+xml; role=template\r\n"));
  EXPECT_THAT(get("icon/nothing", "-i").output, HasSubstr("HTTP/1.1 404 "));
}

TEST_F(DesktopProgramTest, TheFeedTellsWhatIsSentToEcho) {
  RecordClient client(serviceURL(), bus_.directory());
  EXPECT_THAT(client.get("feed"), HasSubstr("Content-Type: text/event-stream\r\n"));
  EXPECT_THAT(client.readChunk(), testing::StartsWith("event: started\nid: 1\n"));
  (void)get("echo?a=1", "-X PUT --data text");
  EXPECT_EQ(client.readChunk(),
            "event: submitted\nid: 2\n"
            "data: {\"method\":\"PUT\",\"query\":\"a=1\",\"inputs\":{}}\n\n");
}

TEST_F(DesktopProgramTest, TheFeedTicksWhenAsked) {
  RecordClient client(serviceURL(), bus_.directory());
  client.get("feed?interval=10", "Last-Event-ID: 1\r\n");
  EXPECT_THAT(client.readChunk(), testing::StartsWith("event: tick\nid: 2\n"));
  EXPECT_THAT(get("feed?interval=0").output, HasSubstr("interval must be a number"));
}

}  // namespace
}  // namespace kvltest
