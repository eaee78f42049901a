// A decoder that does what it is told, and a home directory for it to look at.
#pragma once

#include "tests/interface/decoder/DecoderProcess.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace kvltest {

class DecoderFixture : public testing::Test {
 protected:
  explicit DecoderFixture(std::initializer_list<std::string> arguments = {})
      : decoder_(KVL_TOLD_DECODER, arguments) {
    std::string folder = std::filesystem::temp_directory_path() / "decoder-XXXXXX";
    home_ = mkdtemp(folder.data());
    std::ofstream(secret()) << "secret";
  }
  ~DecoderFixture() override { std::filesystem::remove_all(home_); }

  void SetUp() override {
    const auto said = decoder_.hello();
    ASSERT_TRUE(said.has_value());
    hello_ = *said;
    worker_ = decoder_.start();
    ASSERT_TRUE(worker_.has_value());
  }

  [[nodiscard]] const kvl::interface::Hello& hello() const { return hello_; }
  [[nodiscard]] DecoderProcess& decoder() { return decoder_; }
  [[nodiscard]] DecoderWorker& worker() { return *worker_; }
  [[nodiscard]] int tell(std::string_view text) { return worker_->tell(text); }

  [[nodiscard]] std::string home() const { return home_; }
  [[nodiscard]] std::string secret() const { return home_ / "secret"; }
  // The names of the files in it.
  [[nodiscard]] std::string contentsOfHome() const {
    std::string names;
    for (const auto& entry : std::filesystem::directory_iterator(home_)) {
      names += entry.path().filename();
    }
    return names;
  }

 private:
  std::filesystem::path home_;
  DecoderProcess decoder_;
  kvl::interface::Hello hello_;
  std::optional<DecoderWorker> worker_;
};

}  // namespace kvltest
