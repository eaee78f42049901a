// Documents of any shape.
#pragma once

#include <local/platform/Value.h>

#include <bit>
#include <cmath>
#include <random>
#include <string>

namespace kvltest {

// Values that JSON can hold. The same seed gives the same ones.
class RandomDocument {
 public:
  explicit RandomDocument(unsigned seed) : random_(seed) {}

  // An array or a dictionary.
  kvl::Value next() { return container(0); }

 private:
  static constexpr int kDeepest = 6;

  int below(int limit) { return std::uniform_int_distribution(0, limit - 1)(random_); }

  kvl::Value container(int depth) { return below(2) == 0 ? array(depth) : dictionary(depth); }

  kvl::Value array(int depth) {
    kvl::Array array;
    for (int count = below(8); count > 0; --count) array.append(value(depth + 1));
    return array;
  }

  // Now and then a large one.
  kvl::Value dictionary(int depth) {
    kvl::Dictionary dictionary;
    for (int count = below(depth < 3 && below(4) == 0 ? 60 : 8); count > 0; --count)
      dictionary.set(text(), value(depth + 1));
    return dictionary;
  }

  kvl::Value value(int depth) {
    switch (below(depth < kDeepest ? 8 : 6)) {
      case 0:
        return nullptr;
      case 1:
        return below(2) == 0;
      case 2:
        return integer();
      case 3:
        return real();
      case 4:
      case 5:
        return text();
      default:
        return container(depth);
    }
  }

  std::int64_t integer() {
    const auto bits = static_cast<std::int64_t>(random_());
    return bits >> below(64);
  }

  double real() {
    double real = 0;
    do {
      real = std::bit_cast<double>(random_());
    } while (!std::isfinite(real));
    return below(2) == 0 ? real : static_cast<double>(below(1000)) / 8;
  }

  std::string text() {
    static constexpr std::string_view pieces[] = {
        "a",
        "key",
        "\"",
        "\\",
        "\n",
        "\x01",
        "\x7f",
        "/",
        "é",
        "日本",
        "😀",
        " ",
        "0",
        std::string_view("\0", 1),
        "a rather long piece of text without anything special in it"};
    std::string text;
    for (int count = below(5); count > 0; --count)
      text += pieces[below(static_cast<int>(std::size(pieces)))];
    return text;
  }

  std::mt19937_64 random_;
};

}  // namespace kvltest
