// Values of a document that was read: one tree, shared and kept alive as one.
#include "platform/serialisation/JSONReader.h"

#include <gtest/gtest.h>

#include <barrier>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::Array;
using kvl::Data;
using kvl::Dictionary;
using kvl::String;
using kvl::Value;

Value readDocument(std::string_view text) {
  return kvl::valueFromJSON(Data::fromText(text), nullptr).value();
}

// A document, and whether its text is still there.
struct Watched {
  explicit Watched(std::string_view content) {
    auto owner = std::make_shared<const std::string>(content);
    text = owner;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(owner->data());
    document = kvl::valueFromJSON(Data(owner, {bytes, owner->size()}), nullptr);
  }

  std::optional<Value> document;
  std::weak_ptr<const std::string> text;
};

std::string manyEntries(int count) {
  std::string text = "{";
  for (int i = 0; i < count; ++i)
    text += (i > 0 ? ",\"key" : "\"key") + std::to_string(i) + "\":[" + std::to_string(i) + "]";
  return text + "}";
}

TEST(JSONDocumentTest, AStoredObjectIsTheSameEveryTimeItIsTakenOut) {
  constexpr std::string_view kText = R"({"s":"text","e":"","a":[],"d":{},"n":[1.5],"x":"esc\n"})";
  const Value document = readDocument(kText);
  const Dictionary dictionary = *document.dictionary();
  const Dictionary readAgain = *readDocument(kText).dictionary();
  for (const auto& [key, value] : dictionary) {
    const Value& first = dictionary[key];
    const Value second = *dictionary.find(key);
    EXPECT_TRUE(first.isSameObject(second)) << key;
    EXPECT_TRUE(first.isSameObject(value)) << key;
    EXPECT_TRUE(value.isSameObject(first)) << key;
    EXPECT_FALSE(first.isSameObject(document)) << key;
    EXPECT_EQ(first, readAgain[key]) << key;
    EXPECT_FALSE(first.isSameObject(readAgain[key])) << key;
  }
  EXPECT_FALSE(dictionary["a"].isSameObject(dictionary["n"]));
  EXPECT_FALSE(dictionary["s"].isSameObject(dictionary["e"]));
}

TEST(JSONDocumentTest, StringsArraysAndDictionariesAreTheStoredObjects) {
  const Value document = readDocument(R"(["text",[],{"a":{}}])");
  const Array array = *document.as<Array>();
  EXPECT_TRUE(Value(array).isSameObject(document));
  EXPECT_TRUE(Value(*array[0].as<String>()).isSameObject(array[0]));
  EXPECT_TRUE(Value(*array[1].as<Array>()).isSameObject(*array[1].array()));
  EXPECT_TRUE(Value(*array[2].as<Dictionary>()).isSameObject(array[2]));
  EXPECT_EQ(array[0].string()->data(), array[0].as<String>()->text().data());
}

TEST(JSONDocumentTest, EqualObjectsOfOneDocumentAreDifferentOnes) {
  const Array array = *readDocument(R"(["a","a",[],[],{},{},"",""])").array();
  for (std::size_t i = 0; i < array.size(); i += 2) {
    EXPECT_EQ(array[i], array[i + 1]);
    EXPECT_FALSE(array[i].isSameObject(array[i + 1]));
    EXPECT_FALSE(Value(array[i]).isSameObject(Value(array[i + 1])));
  }
}

TEST(JSONDocumentTest, AKeptSubValueKeepsTheDocumentAndItsText) {
  Watched watched(R"({"list":[1,{"deep":"down"}]})");
  std::optional<Value> kept =
      (*(*(*watched.document->dictionary())["list"].array())[1].dictionary())["deep"];
  watched.document.reset();
  EXPECT_FALSE(watched.text.expired());
  EXPECT_EQ(kept->string(), "down");
  kept.reset();
  EXPECT_TRUE(watched.text.expired());
}

TEST(JSONDocumentTest, NumbersThatAreKeptKeepNothingElse) {
  Watched watched("[1,2.5,true,null]");
  const Array array = *watched.document->array();
  const std::vector<Value> kept(array.begin(), array.end());
  watched.document.reset();
  EXPECT_FALSE(watched.text.expired());
  const Watched scalar("12");
  EXPECT_TRUE(scalar.text.expired());
  EXPECT_EQ(kept[1], Value(2.5));
}

TEST(JSONDocumentTest, StringsWithoutEscapesAreNotCopied) {
  const Data text = Data::fromText(R"({"key":["plain","esc\taped"]})");
  const Value document = *kvl::valueFromJSON(text, nullptr);
  const auto& [key, value] = *document.dictionary()->begin();
  EXPECT_EQ(key.data(), text.text().data() + 2);
  const Array strings = *value.array();
  EXPECT_EQ(strings[0].string()->data(), text.text().data() + 9);
  EXPECT_EQ(strings[1].string(), "esc\taped");
}

TEST(JSONDocumentTest, ATopLevelStringIsAnObjectOfItsDocument) {
  Watched watched("\"text\"");
  std::optional<Value> copy = watched.document;
  EXPECT_TRUE(copy->isSameObject(*watched.document));
  watched.document.reset();
  EXPECT_EQ(copy->string(), "text");
  copy.reset();
  EXPECT_TRUE(watched.text.expired());
}

TEST(JSONDocumentTest, ChangingACopyLeavesTheDocumentAsItWas) {
  const Value document = readDocument(R"({"a":[1],"b":{"c":"d"}})");
  Dictionary dictionary = *document.dictionary();
  dictionary.set("a", 2);
  dictionary.set("new", 3);
  dictionary.remove("b");
  EXPECT_EQ(dictionary, (Dictionary{{"a", 2}, {"new", 3}}));
  Array array = *(*document.dictionary())["a"].array();
  array.append("more");
  EXPECT_EQ(array, (Array{1, "more"}));
  EXPECT_EQ(document, readDocument(R"({"a":[1],"b":{"c":"d"}})"));
}

TEST(JSONDocumentTest, AChangedCopyKeepsWhatItStillRefersTo) {
  Watched watched(R"({"a":["text"],"b":1})");
  std::optional<Dictionary> changed = watched.document->dictionary();
  const Value stored = (*changed)["a"];
  changed->set("b", 2);
  EXPECT_TRUE((*changed)["a"].isSameObject(stored));
  watched.document.reset();
  EXPECT_EQ(changed->description(), "{a = (text); b = 2}");
}

TEST(JSONDocumentTest, AKeyOfTheDictionaryItselfMayBeGivenToChangeIt) {
  Dictionary set = *readDocument(R"({"a":1})").dictionary();
  set.set(set.begin()->first, 2);
  EXPECT_EQ(set, (Dictionary{{"a", 2}}));
  Dictionary removed = *readDocument(R"({"a":1,"b":2})").dictionary();
  removed.remove(removed.begin()->first);
  EXPECT_EQ(removed, (Dictionary{{"b", 2}}));
}

TEST(JSONDocumentTest, ReadAndMadeValuesMix) {
  const Value document = readDocument(R"({"a":["text",{"b":1}]})");
  const Value mixed = Dictionary{{"read", document}, {"made", Array{document, 1}}};
  EXPECT_EQ(mixed.description(),
            "{read = {a = (text, {b = 1})}; made = ({a = (text, {b = 1})}, 1)}");
  const Value made = Dictionary{{"a", Array{"text", Dictionary{{"b", 1}}}}};
  EXPECT_EQ(document, made);
  EXPECT_EQ(made, document);
  EXPECT_FALSE(document == Value(Dictionary{{"a", Array{"text", Dictionary{{"c", 1}}}}}));
}

TEST(JSONDocumentTest, FindsEveryKeyOnBothSidesOfTheIndexedSize) {
  for (const int count : {1, 15, 16, 17, 18, 100, 20'000}) {
    const Dictionary dictionary = *readDocument(manyEntries(count)).dictionary();
    ASSERT_EQ(dictionary.size(), static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
      ASSERT_EQ(dictionary["key" + std::to_string(i)], Value(Array{i}));
    EXPECT_EQ(dictionary.find("key" + std::to_string(count)), nullptr);
    EXPECT_EQ(dictionary.find(""), nullptr);
  }
}

TEST(JSONDocumentTest, FindsKeysOfEveryLength) {
  const std::string longest(40, 'k');
  std::string text = "{";
  for (std::size_t size = 0; size <= 15; ++size)
    text += (size > 0 ? ",\"" : "\"") + longest.substr(0, size * 2) + "\":" + std::to_string(size);
  const Dictionary dictionary = *readDocument(text + "}").dictionary();
  ASSERT_EQ(dictionary.size(), 16U);
  for (std::size_t size = 0; size <= 15; ++size) {
    const std::string key = longest.substr(0, size * 2);
    EXPECT_EQ(dictionary[key], Value(size));
    EXPECT_FALSE(dictionary.contains(key + "x"));
    if (key.empty()) continue;
    for (const std::size_t changed : {std::size_t{0}, key.size() / 2, key.size() - 1}) {
      std::string other = key;
      other[changed] = 'x';
      EXPECT_FALSE(dictionary.contains(other));
    }
  }
}

TEST(JSONDocumentTest, ALargeDictionaryCanBeChangedKeyByKey) {
  Dictionary dictionary = *readDocument(manyEntries(2000)).dictionary();
  for (int i = 0; i < 2000; i += 2) dictionary.set("key" + std::to_string(i), i);
  for (int i = 1; i < 2000; i += 2) dictionary.remove("key" + std::to_string(i));
  EXPECT_EQ(dictionary.size(), 1000U);
  EXPECT_EQ(dictionary["key1998"].integer(), 1998);
  EXPECT_FALSE(dictionary.contains("key1999"));
}

TEST(JSONDocumentTest, HoldsStringsAndContainersOfAnySize) {
  for (const std::size_t size : {65'534U, 65'535U, 65'536U, 200'000U}) {
    const std::string string(size, 's');
    EXPECT_EQ(readDocument("[\"" + string + "\"]").array()->begin()->string(), string);
    EXPECT_EQ(readDocument("[\"" + string + "\\n\"]").array()->begin()->string(), string + "\n");
    std::string text = "[[0";
    for (std::size_t i = 1; i < size; ++i) text += ",1";
    const Array array = *readDocument(text + "]]").array();
    ASSERT_EQ(array[0].array()->size(), size);
    EXPECT_EQ((*array[0].array())[size - 1], Value(1));
  }
}

// Takes values out of the document in every way, and drops them.
void takeApart(const Dictionary& document) {
  for (int round = 0; round < 300; ++round) {
    const Value& list = document["list"];
    const Array array = *list.array();
    std::vector<Value> kept(array.begin(), array.end());
    const auto string = kept[0].as<String>();
    ASSERT_EQ(string->text(), "text");
    Array changed = array;
    changed.append(*string);
    ASSERT_EQ(changed.size(), 4U);
    ASSERT_EQ((*document["list"].array())[1].description(), "{a = \"b c\"}");
  }
}

TEST(JSONDocumentTest, ThreadsTakeValuesOutWhileTheDocumentGoes) {
  constexpr int kThreads = 4;
  for (int round = 0; round < 20; ++round) {
    Watched watched(R"({"list":["text",{"a":"b c"},"esc\n"]})");
    std::barrier start(kThreads + 1);
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&start, dictionary = *watched.document->dictionary()] {
        start.arrive_and_wait();
        takeApart(dictionary);
      });
    }
    start.arrive_and_wait();
    watched.document.reset();
    threads.clear();
    EXPECT_TRUE(watched.text.expired());
  }
}

TEST(JSONDocumentTest, ManyThreadsReadDocumentsAtOnce) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 100; ++round) {
        const int count = 1 + (round * 37 + i) % 300;
        ASSERT_EQ(readDocument(manyEntries(count)).dictionary()->size(),
                  static_cast<std::size_t>(count));
      }
    });
  }
}

}  // namespace
