#include "platform/ipc/NotaryMessage.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace kvltest {
namespace {

using kvl::Array;
using kvl::Dictionary;
using kvl::Value;
using kvl::ipc::dictionaryFromVariant;
using kvl::ipc::kMaximumDictionaryDepth;
using kvl::ipc::valueFromVariant;
using kvl::ipc::variantFromDictionary;
using kvl::ipc::variantFromValue;
using kvl::ipc::VariantPtr;

VariantPtr parsed(const char* text) {
  return VariantPtr(g_variant_parse(nullptr, text, nullptr, nullptr, nullptr));
}

Dictionary nested(int levels) {
  Dictionary dictionary{{"bottom", true}};
  for (int level = 0; level < levels; ++level) dictionary = Dictionary{{"d", dictionary}};
  return dictionary;
}

TEST(ValueVariantTest, ValuesHaveTheirWireTypesAndComeBack) {
  const std::vector<std::pair<Value, const char*>> rows{
      {true, "b"},
      {std::numeric_limits<std::int64_t>::min(), "x"},
      {-0.5, "d"},
      {"", "s"},
      {"ü\n", "s"},
      {kvl::Data(), "ay"},
      {kvl::Data(kvl::Bytes{0, 1, 2}), "ay"},
      {Array{}, "as"},
      {Array{"", "b"}, "as"},
      {Dictionary{}, "a{sv}"},
      {Dictionary{{"a", Array{"x"}}, {"", 1}}, "a{sv}"},
  };
  for (const auto& [value, type] : rows) {
    SCOPED_TRACE(value.description());
    const VariantPtr variant = variantFromValue(value);
    ASSERT_NE(variant, nullptr);
    EXPECT_STREQ(g_variant_get_type_string(variant.get()), type);
    EXPECT_EQ(valueFromVariant(variant.get()), value);
  }
}

TEST(ValueVariantTest, UnsignedBeyondTheSignedRangeBecomesReal) {
  EXPECT_EQ(valueFromVariant(parsed("uint64 9223372036854775807").get()),
            Value(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(valueFromVariant(parsed("uint64 18446744073709551615").get()),
            Value(18446744073709551615.0));
}

TEST(ValueVariantTest, OtherTypesAreRefused) {
  for (const char* text : {"byte 0x01", "int16 1", "uint16 1", "int32 1", "uint32 1", "('a',)",
                           "[1.0]", "@ab []", "<'a'>", "objectpath '/a'", "signature 's'",
                           "{'a': 'b'}", "[['a']]", "@aa{sv} []", "just 'a'"}) {
    EXPECT_FALSE(valueFromVariant(parsed(text).get()).has_value()) << text;
  }
}

TEST(ValueVariantTest, LaterEntryOfOneKeyCounts) {
  EXPECT_EQ(dictionaryFromVariant(parsed("{'a': <'1'>, 'a': <'2'>}").get()),
            (Dictionary{{"a", "2"}}));
}

TEST(ValueVariantTest, OneValueThatTheWireCannotCarrySpoilsTheWhole) {
  for (const Value& value : {Value(Array{1, "a"}), Value(Array{"a", 1, "b"}),
                             Value(Array{"\xff", "a"}), Value(Dictionary{{"a", nullptr}, {"b", 1}}),
                             Value(Dictionary{{"a", Array{1, "x"}}, {"b", 1}})}) {
    EXPECT_EQ(variantFromValue(value), nullptr) << value.description();
  }
}

TEST(ValueVariantTest, DepthIsBoundedInBothDirections) {
  EXPECT_EQ(kMaximumDictionaryDepth, 16);  // hosts and notaries build on it
  const Dictionary deepest = nested(kMaximumDictionaryDepth);
  const VariantPtr variant = variantFromDictionary(deepest);
  ASSERT_NE(variant, nullptr);
  EXPECT_EQ(dictionaryFromVariant(variant.get()), deepest);
  EXPECT_EQ(variantFromDictionary(nested(kMaximumDictionaryDepth + 1)), nullptr);

  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&builder, "{sv}", "d", variant.get());
  const VariantPtr tooDeep(g_variant_ref_sink(g_variant_builder_end(&builder)));
  EXPECT_FALSE(dictionaryFromVariant(tooDeep.get()).has_value());
}

}  // namespace
}  // namespace kvltest
