// The reader and the writer on documents of any shape, and the reader beside another one.
#include "platform/serialisation/JSONReader.h"
#include "platform/serialisation/JSONWriter.h"
#include "tests/serialisation/JSONOracle.h"
#include "tests/serialisation/RandomDocument.h"

#include <gtest/gtest.h>

namespace {

using kvl::Value;
using kvltest::differenceFromOracle;
using kvltest::RandomDocument;

constexpr unsigned kDocuments = 300;

std::string compactText(const Value& value) {
  const auto text = kvl::JSONFromValue(value, nullptr);
  return text ? std::string(text->text()) : "nothing";
}

TEST(JSONPropertyTest, WhatIsWrittenReadsBackAsTheSame) {
  for (unsigned seed = 0; seed < kDocuments; ++seed) {
    const Value value = RandomDocument(seed).next();
    ASSERT_TRUE(kvl::isValidJSONObject(value));
    const std::string text = compactText(value);
    const auto read = kvl::valueFromJSON(kvl::Data::fromText(text), nullptr);
    ASSERT_EQ(read, value) << text;
    // The order of keys and the sign of zero, too, which equality does not see.
    ASSERT_EQ(compactText(*read), text);
  }
}

TEST(JSONPropertyTest, WhatIsWrittenAnotherReaderReadsAsTheSame) {
  for (unsigned seed = 0; seed < kDocuments; ++seed) {
    const Value value = RandomDocument(seed).next();
    ASSERT_EQ(kvltest::oracleValue(compactText(value)).value, value);
  }
}

// Damages a text a little. The bytes are those that mean something.
class Mutation {
 public:
  explicit Mutation(unsigned seed) : random_(seed) {}

  std::string of(std::string text) {
    for (std::size_t count = 1 + below(3); count > 0 && !text.empty(); --count) change(text);
    return text;
  }

 private:
  static constexpr std::string_view kBytes =
      "[]{}:,\"\\ \n\t\r0123456789-+.eEtrufalsn/bu\x01\xc3\xa9\xed\xa0\xff";

  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
  }
  void change(std::string& text) {
    const std::size_t position = below(text.size());
    switch (below(5)) {
      case 0:
        text.erase(position, 1 + below(3));
        break;
      case 1:
        text.insert(position, 1, kBytes[below(kBytes.size())]);
        break;
      case 2:
        text.insert(position, text.substr(below(text.size()), below(6)));
        break;
      case 3:
        text.resize(position);
        break;
      default:
        text[position] = kBytes[below(kBytes.size())];
    }
  }

  std::mt19937 random_;
};

TEST(JSONPropertyTest, AgreesWithAnotherReaderOnDamagedTexts) {
  for (unsigned seed = 0; seed < 20 * kDocuments; ++seed) {
    const std::string text = compactText(RandomDocument(seed % kDocuments).next());
    ASSERT_EQ(differenceFromOracle(Mutation(seed).of(text.substr(0, 400))), "");
  }
}

// Short texts of nothing but what means something reach states that damage does not.
TEST(JSONPropertyTest, AgreesWithAnotherReaderOnTextsOfTokens) {
  static constexpr std::string_view tokens[] = {
      "[",          "]",       "{", "}",  ":",   ",",           "\"\"",
      "\"a\"",      "\"\\n\"", "1", "-0", "1.5", "1e2",         "0",
      "true",       "null",    " ", "-",  ".",   "\"\\u00e9\"", "\"\\ud83d\\ude00\"",
      "\"\\ud83d\""};
  std::mt19937 random(1);
  std::uniform_int_distribution<std::size_t> token(0, std::size(tokens) - 1);
  std::uniform_int_distribution<int> count(1, 9);
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    for (int i = count(random); i > 0; --i) text += tokens[token(random)];
    ASSERT_EQ(differenceFromOracle(text), "");
  }
}

}  // namespace
