#include "platform/interface/binding/KeyEquivalent.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using namespace std::literals;
using kvl::interface::Key;
using kvl::interface::keyOf;
using Kind = Key::Kind;

TEST(KeyEquivalentTest, ACharacterStandsForItself) {
  for (const auto& [text, character] : {std::pair("o"sv, U'o'),
                                        {"O"sv, U'O'},
                                        {"+"sv, U'+'},
                                        {"\xC3\xA4"sv, U'\u00e4'},
                                        {"\xF0\x9F\x98\x80"sv, U'\U0001f600'}})
    EXPECT_EQ(keyOf(text), (Key{Kind::character, character, 0})) << text;
}

TEST(KeyEquivalentTest, ControlCharactersStandForTheKeysThatTypeThem) {
  for (const auto& [text, kind] : {std::pair("\r"sv, Kind::returnKey),
                                   {"\n"sv, Kind::returnKey},
                                   {"\t"sv, Kind::tab},
                                   {"\x1b"sv, Kind::escape},
                                   {" "sv, Kind::space},
                                   {"\x08"sv, Kind::backspace},
                                   {"\x7f"sv, Kind::deleteForward},
                                   {"\x03"sv, Kind::enter},
                                   {"\x19"sv, Kind::backTab}})
    EXPECT_EQ(keyOf(text), (Key{kind, 0, 0})) << text;
}

TEST(KeyEquivalentTest, PrivateCharactersStandForKeysThatTypeNothing) {
  for (const auto& [text, kind] : {std::pair("\xEF\x9C\x80"sv, Kind::up),
                                   {"\xEF\x9C\x81"sv, Kind::down},
                                   {"\xEF\x9C\x82"sv, Kind::left},
                                   {"\xEF\x9C\x83"sv, Kind::right},
                                   {"\xEF\x9C\xA7"sv, Kind::insert},
                                   {"\xEF\x9C\xA8"sv, Kind::deleteForward},
                                   {"\xEF\x9C\xA9"sv, Kind::home},
                                   {"\xEF\x9C\xAB"sv, Kind::end},
                                   {"\xEF\x9C\xAC"sv, Kind::pageUp},
                                   {"\xEF\x9C\xAD"sv, Kind::pageDown},
                                   {"\xEF\x9C\xAE"sv, Kind::print},
                                   {"\xEF\x9C\xAF"sv, Kind::scrollLock},
                                   {"\xEF\x9C\xB0"sv, Kind::pause},
                                   {"\xEF\x9C\xB1"sv, Kind::systemRequest},
                                   {"\xEF\x9C\xB5"sv, Kind::menu}})
    EXPECT_EQ(keyOf(text), (Key{kind, 0, 0}));
  EXPECT_EQ(keyOf("\xEF\x9C\x84"), (Key{Kind::function, 0, 1}));
  EXPECT_EQ(keyOf("\xEF\x9C\x8F"), (Key{Kind::function, 0, 12}));
  EXPECT_EQ(keyOf("\xEF\x9C\xA6"), (Key{Kind::function, 0, 35}));
}

TEST(KeyEquivalentTest, AByteOrderMarkInFrontDoesNotCount) {
  EXPECT_EQ(keyOf("\xEF\xBB\xBFo"), (Key{Kind::character, U'o', 0}));
  EXPECT_EQ(keyOf("\xEF\xBB\xBF"), std::nullopt);
}

TEST(KeyEquivalentTest, CharactersBesideThoseOfKeysStandForThemselves) {
  for (const auto& [text, character] : {std::pair("\x02"sv, U'\x02'),
                                        {"\x1a"sv, U'\x1a'},
                                        {"!"sv, U'!'},
                                        {"~"sv, U'~'},
                                        {"\xEF\x9B\xBF"sv, U'\xf6ff'},
                                        {"\xEF\x9C\xAA"sv, U'\xf72a'},
                                        {"\xEF\x9C\xB2"sv, U'\xf732'},
                                        {"\xEF\x9C\xB6"sv, U'\xf736'}})
    EXPECT_EQ(keyOf(text), (Key{Kind::character, character, 0})) << text;
}

TEST(KeyEquivalentTest, WhatIsNotOneCharacterStandsForNoKey) {
  for (const auto text : {""sv, "ab"sv, "Ctrl+O"sv, "\xFF"sv, "\xC3"sv, "\xEF\xBF\xBD"sv})
    EXPECT_EQ(keyOf(text), std::nullopt) << text;
  EXPECT_EQ(keyOf(std::string(1 << 20, 'a')), std::nullopt);
}

}  // namespace
