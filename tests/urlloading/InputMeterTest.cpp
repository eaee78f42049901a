#include "platform/urlloading/InputMeter.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using kvl::urlloading::InputMeter;

constexpr std::size_t kRecord = 16384;

// A connection that has brought 1 MiB.
class InputMeterTest : public ::testing::Test {
 protected:
  InputMeterTest() {
    const std::string bytes(std::size_t{1} << 20, 'x');
    BIO* const input = BIO_new(BIO_s_mem());
    BIO_write(input, bytes.data(), static_cast<int>(bytes.size()));
    SSL_set_bio(ssl_.get(), input, input);
    meter.watch(ssl_.get());
  }
  // Reads a record at a time, each of use, until there is no more in this pass.
  [[nodiscard]] std::size_t readUseful() {
    std::string record(kRecord, '\0');
    std::size_t total = 0;
    for (int count = read(record); count > 0; count = read(record)) {
      total += static_cast<std::size_t>(count);
      meter.noteProgress(static_cast<std::size_t>(count));
    }
    return total;
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
  meter.endPass();
  EXPECT_EQ(readUseful(), first);
}

TEST_F(InputMeterTest, WhatIsOfUseOnAConnectionOfItsOwnIsReadInOneGo) {
  EXPECT_EQ(readUseful(), std::size_t{1} << 20);
}

TEST_F(InputMeterTest, APassIsActiveThatReadsOrTakesWhatWasRead) {
  EXPECT_FALSE(meter.isActive());
  static_cast<void>(readUseful());
  EXPECT_TRUE(meter.isActive());
  meter.endPass();
  EXPECT_FALSE(meter.isActive());
  meter.noteProgress(1);
  EXPECT_TRUE(meter.isActive());
}

}  // namespace
