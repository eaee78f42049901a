#include "platform/urlloading/DeclineWatch.h"

#include <gtest/gtest.h>

#include <memory>

namespace kvl::urlloading {
namespace {

class NoSource : public ChallengeSource {
 public:
  std::string peerHost() const override { return {}; }
  ChallengeAnswer askServerTrust(const std::shared_ptr<security::ServerTrust>&) override {
    return {};
  }
  ChallengeAnswer askClientCertificate() override { return {}; }
};

struct EasyCleanup {
  void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
};

// Two exchanges on one connection.
class DeclineWatchTest : public ::testing::Test {
 protected:
  DeclineWatchTest() {
    first_.begin(easy_.get(), connection_);
    second_.begin(easy_.get(), connection_);
  }

  // One more, of which libcurl has told no text. Whether its stream is above this one.
  [[nodiscard]] bool isNextAbove(std::uint32_t last, bool isWritten = true) {
    DeclineWatch next;
    next.begin(easy_.get(), connection_);
    if (isWritten) connection_->input().noteWriting();
    next.noteSent(easy_.get());
    connection_->noteLastStream(last);
    return next.isDeclined();
  }

  NoSource source_;
  std::shared_ptr<TLSConnection> connection_ = std::make_shared<TLSConnection>(source_);
  DeclineWatch first_;
  DeclineWatch second_;
  std::unique_ptr<CURL, EasyCleanup> easy_{curl_easy_init()};
};

TEST_F(DeclineWatchTest, TheEndOfTheConnectionDeclinesWhatComesAfterItsLastStream) {
  first_.take("Using Stream ID: 5 (easy handle 0x7)\n");
  second_.take("Using Stream ID: 7 (easy handle 0x8)\n");
  EXPECT_FALSE(second_.isDeclined());
  first_.take("recveived GOAWAY, error=0, last_stream=5\n");
  EXPECT_FALSE(first_.isDeclined());
  EXPECT_TRUE(second_.isDeclined());
}

TEST_F(DeclineWatchTest, AnEndIsAnnouncedMoreThanOnce) {
  first_.take("Using Stream ID: 5 (easy handle 0x7)\n");
  second_.take("recveived GOAWAY, error=0, last_stream=2147483647\n");
  EXPECT_FALSE(first_.isDeclined());
  second_.take("recveived GOAWAY, error=0, last_stream=3\n");
  EXPECT_TRUE(first_.isDeclined());
  second_.take("recveived GOAWAY, error=0, last_stream=9\n");
  EXPECT_TRUE(first_.isDeclined());
}

TEST_F(DeclineWatchTest, KnowsTheTextsOfLaterVersions) {
  first_.take("[HTTP/2] [5] OPENED stream for https://localhost/]\n");
  second_.take("[HTTP/2] [7] OPENED stream for https://localhost/\n");
  second_.take("[HTTP/2] [3] [:method: GET]\n");
  first_.take("received GOAWAY, error=0, last_stream=5\n");
  EXPECT_FALSE(first_.isDeclined());
  EXPECT_TRUE(second_.isDeclined());
}

TEST_F(DeclineWatchTest, ARefusedStreamIsOneExchange) {
  first_.take("Using Stream ID: 5 (easy handle 0x7)\n");
  second_.take("Using Stream ID: 7 (easy handle 0x8)\n");
  second_.take("REFUSED_STREAM, retrying a fresh connect\n");
  EXPECT_FALSE(first_.isDeclined());
  EXPECT_TRUE(second_.isDeclined());
}

TEST_F(DeclineWatchTest, OtherTextsDeclineNothing) {
  first_.take("Using Stream ID: 5 (easy handle 0x7)\n");
  for (const char* text : {"", "Connection died, retrying a fresh connect (retry count: 1)\n",
                           "recveived GOAWAY, error=0, last_stream=\n",
                           "h2h3 [x: recveived GOAWAY, error=0, last_stream=1]\n",
                           "HTTP/2 stream 5 was not closed cleanly: REFUSED_STREAM, (err 7)\n"}) {
    first_.take(text);
    EXPECT_FALSE(first_.isDeclined()) << text;
  }
}

TEST_F(DeclineWatchTest, CountsFromTheFirstStreamThatIsToldOn) {
  first_.take("Using Stream ID: 5 (easy handle 0x7)\n");
  EXPECT_FALSE(isNextAbove(13));
  EXPECT_FALSE(isNextAbove(9));
  EXPECT_TRUE(isNextAbove(10));
}

TEST_F(DeclineWatchTest, CountsNoRequestThatWasNotWritten) {
  first_.take("Using Stream ID: 5 (easy handle 0x7)\n");
  EXPECT_FALSE(isNextAbove(6, false));
  // Now the number is to be told anew.
  EXPECT_FALSE(isNextAbove(6));
  second_.take("Using Stream ID: 7 (easy handle 0x8)\n");
  EXPECT_TRUE(isNextAbove(8));
}

TEST_F(DeclineWatchTest, KnowsNoStreamBeforeTheRequestIsSent) {
  first_.take("Using Stream ID: 5 (easy handle 0x7)\n");
  connection_->noteLastStream(5);
  DeclineWatch next;
  next.begin(easy_.get(), connection_);
  EXPECT_FALSE(next.isDeclined());
}

TEST_F(DeclineWatchTest, WithoutAStreamNothingIsDeclined) {
  second_.take("recveived GOAWAY, error=0, last_stream=0\n");
  second_.take("Using Stream ID: x\n");
  EXPECT_FALSE(second_.isDeclined());
}

}  // namespace
}  // namespace kvl::urlloading
