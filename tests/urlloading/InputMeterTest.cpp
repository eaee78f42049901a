#include "platform/urlloading/InputMeter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

namespace {

using kvl::urlloading::InputMeter;

constexpr std::size_t kRecord = 16384;

constexpr std::size_t kBrought = std::size_t{4} << 20;

// A connection that has brought 4 MiB.
class InputMeterTest : public ::testing::Test {
 protected:
  InputMeterTest() {
    const std::string bytes(kBrought, 'x');
    BIO* const input = BIO_new(BIO_s_mem());
    BIO_write(input, bytes.data(), static_cast<int>(bytes.size()));
    SSL_set_bio(ssl_.get(), input, input);
    meter.watch(ssl_.get());
  }
  // Reads a record at a time, each of use, and taken at once if so, until there is no more in this
  // pass.
  [[nodiscard]] std::size_t readUseful(bool isTaken = true) {
    std::string record(kRecord, '\0');
    std::size_t total = 0;
    for (int count = read(record); count > 0; count = read(record)) {
      total += static_cast<std::size_t>(count);
      meter.noteProgress(static_cast<std::size_t>(count));
      if (isTaken) meter.noteTaken(static_cast<std::size_t>(count));
    }
    return total;
  }
  void endPass() {
    static_cast<void>(meter.noteExchange());
    meter.endPass();
  }
  [[nodiscard]] bool shouldRetry() const { return BIO_should_retry(SSL_get_rbio(ssl_.get())) != 0; }

 private:
  int read(std::string& record) {
    return BIO_read(SSL_get_rbio(ssl_.get()), record.data(), static_cast<int>(record.size()));
  }
  struct Deleter {
    void operator()(SSL_CTX* context) const noexcept { SSL_CTX_free(context); }
    void operator()(SSL* ssl) const noexcept { SSL_free(ssl); }
  };
  std::unique_ptr<SSL_CTX, Deleter> context_{SSL_CTX_new(TLS_client_method())};

 protected:
  InputMeter meter;

 private:
  std::unique_ptr<SSL, Deleter> ssl_{SSL_new(context_.get())};
};

TEST_F(InputMeterTest, SharedConnectionsAreReadInSlices) {
  meter.share();
  const std::size_t first = readUseful();
  EXPECT_GT(first, InputMeter::kSharedSlice);
  EXPECT_LE(first, InputMeter::kSharedSlice + kRecord);
  EXPECT_TRUE(shouldRetry());
  EXPECT_EQ(readUseful(), 0);
  endPass();
  EXPECT_EQ(readUseful(), first);
}

TEST_F(InputMeterTest, WhatNoExchangeHasTakenIsNoMoreThanHasRoom) {
  meter.share();
  const std::size_t read = readUseful(false);
  EXPECT_GT(read, InputMeter::kUntaken);
  EXPECT_LE(read, InputMeter::kUntaken + kRecord);
  EXPECT_TRUE(shouldRetry());
  EXPECT_EQ(readUseful(false), 0);
  meter.noteTaken(read);
  EXPECT_EQ(readUseful(false), read);
}

// All that comes is of one exchange, which has its turn somewhere in each pass and finds what
// others have read before and since.
TEST_F(InputMeterTest, AnExchangesBufferHasRoomForItsBodyWheneverItsTurnComes) {
  meter.share();
  std::size_t buffered = 0;
  std::size_t most = 0;
  for (int pass = 0; pass < 20; ++pass) {
    if (pass % 3 != 0) most = std::max(most, buffered += readUseful(false));
    meter.noteTaken(std::exchange(buffered, 0));
    if (pass % 3 != 1) most = std::max(most, buffered += readUseful(false));
    endPass();
  }
  EXPECT_GT(most, InputMeter::kUntaken);
  EXPECT_LE(most, InputMeter::kMostUntaken);
}

TEST_F(InputMeterTest, APassThatSeveralExchangesEndIsOverOnce) {
  meter.share();
  const std::size_t first = readUseful(false);
  static_cast<void>(meter.noteExchange());
  endPass();
  meter.endPass();
  EXPECT_LT(readUseful(false), first);
}

TEST_F(InputMeterTest, ThatTheConnectionLivesIsKnownForOnePass) {
  EXPECT_FALSE(meter.isKnownToLive());
  meter.noteLife();
  EXPECT_TRUE(meter.isKnownToLive());
  endPass();
  EXPECT_FALSE(meter.isKnownToLive());
}

TEST_F(InputMeterTest, WhatIsOfUseOnAConnectionOfItsOwnIsReadInOneGo) {
  EXPECT_EQ(readUseful(), kBrought);
}

TEST_F(InputMeterTest, APassIsActiveThatReadsOrTakesWhatWasRead) {
  EXPECT_FALSE(meter.isActive());
  static_cast<void>(readUseful());
  EXPECT_TRUE(meter.isActive());
  endPass();
  EXPECT_FALSE(meter.isActive());
  meter.noteProgress(1);
  EXPECT_TRUE(meter.isActive());
}

}  // namespace
