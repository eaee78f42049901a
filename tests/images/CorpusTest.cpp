// Other people's images, beside what the libraries themselves make of them.
#include "platform/interface/client/ImageDecoding.h"
#include "tests/images/PlainDrawing.h"
#include "tests/support/LogCapture.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/Sanitized.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace kvltest;
using kvl::interface::ImageDecoding;
using kvl::interface::ImageSource;
using kvl::interface::PixelSize;

constexpr std::size_t kSample = kSanitized ? 60 : 300;
constexpr std::array<double, 2> kSides{64, 256};
constexpr double kMostDifference = 0.01;
constexpr std::size_t kOneOf = 1000;  // may be missing, or look otherwise

struct Tally {
  std::size_t drawings = 0;
  std::vector<std::string> missing;
  std::vector<std::string> different;
  double difference = 0;  // of all
};

std::vector<std::string> packages() {
  const char* const others = std::getenv("KVL_CORPUS_FROM");
  std::istringstream names(
      others != nullptr ? others : "breeze-icon-theme python-matplotlib-data gnome-backgrounds");
  return {std::istream_iterator<std::string>(names), {}};
}

// KVL_CORPUS says how many: a number, or "all".
std::size_t sampleSize(std::size_t all) {
  const char* const wanted = std::getenv("KVL_CORPUS");
  if (wanted == nullptr) return std::min(all, kSample);
  const std::string_view text(wanted);
  std::size_t count = all;
  std::from_chars(text.data(), text.data() + text.size(), count);
  return std::min(all, count);
}

std::vector<std::string> corpus() {
  const TemporaryDirectory folder;
  const auto list = folder.path() / "list";
  std::vector<std::string> command{"python3", KVL_CORPUS_SCRIPT};
  std::ranges::copy(packages(), std::back_inserter(command));
  ChildProcess script(command, environmentWith({}), list);
  EXPECT_EQ(script.wait(), 0);
  std::vector<std::string> paths;
  std::ifstream lines(list);
  for (std::string line; std::getline(lines, line);) paths.push_back(line);
  paths.resize(sampleSize(paths.size()));
  return paths;
}

kvl::Data contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return kvl::Data::fromText(text.str());
}

PixelSize pixelsWithin(kvl::Size size, double side) {
  const double factor = side / std::max(size.width, size.height);
  const auto whole = [factor](double length) {
    return static_cast<std::uint32_t>(std::max(1.0, std::round(length * factor)));
  };
  return {whole(size.width), whole(size.height)};
}

// Of all channels, as a share of the greatest.
double meanDifference(const std::vector<std::uint8_t>& plain, const kvl::Data& pixels) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < plain.size(); ++i) {
    const int difference = plain[i] - pixels.data()[i];
    sum += static_cast<std::uint64_t>(difference < 0 ? -difference : difference);
  }
  return static_cast<double>(sum) / 255 / static_cast<double>(plain.size());
}

class CorpusTest : public testing::Test {
 protected:
  void look(const std::string& path) {
    const auto data = contentOf(path);
    const auto plain = plainPicture({data.data(), data.size()});
    if (!plain) return;
    log.clear();
    const auto source = std::make_shared<ImageSource>(
        data, kvl::interface::imageFormatOf({data.data(), data.size()}));
    const bool isOpen = decoding.open(source).has_value();
    for (const double side : kSides) {
      const auto pixels = pixelsWithin(plain->size(), side);
      const auto expected = plain->draw(pixels.width, pixels.height);
      if (!expected.empty()) compare(path, isOpen ? source : nullptr, pixels, expected);
    }
  }

  // Without a source it could not be opened.
  void compare(const std::string& path, const std::shared_ptr<ImageSource>& source,
               PixelSize pixels, const std::vector<std::uint8_t>& expected) {
    ++tally.drawings;
    const auto bitmap = source ? decoding.draw(source, pixels) : kvl::Bitmap();
    const auto name =
        path + " at " + std::to_string(pixels.width) + " x " + std::to_string(pixels.height) + ": ";
    if (bitmap.empty()) return note(tally.missing, name + lastLine());
    if (bitmap.pixels.size() != expected.size()) {
      return note(tally.different, name + "another size");
    }
    const double difference = meanDifference(expected, bitmap.pixels);
    tally.difference += difference;
    if (difference < kMostDifference) return;
    note(tally.different, name + std::to_string(difference * 100) + " %");
  }

  static void note(std::vector<std::string>& list, std::string line) {
    std::fprintf(stderr, "%s\n", line.c_str());
    list.push_back(std::move(line));
  }

  [[nodiscard]] std::string lastLine() const {
    const auto lines = log.lines();
    return lines.empty() ? "nothing in the log" : lines.back();
  }

  LogCapture log;
  ImageDecoding decoding{ImageDecoding::Options()};
  Tally tally;
};

TEST_F(CorpusTest, WhatTheLibrariesDrawIsDrawnAndLooksTheSame) {
  const auto paths = corpus();
  for (const auto& path : paths) look(path);
  std::fprintf(stderr, "%zu files, %zu drawings, %zu missing, %zu different, difference %.4f %%\n",
               paths.size(), tally.drawings, tally.missing.size(), tally.different.size(),
               tally.difference * 100 / static_cast<double>(tally.drawings));
  EXPECT_GT(tally.drawings, paths.size());
  EXPECT_LE(tally.missing.size(), tally.drawings / kOneOf);
  EXPECT_LE(tally.different.size(), tally.drawings / kOneOf);
}

}  // namespace
