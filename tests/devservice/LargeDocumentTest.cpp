#include "devservice/service/LargeDocument.h"

#include <gtest/gtest.h>

namespace kvltest {
namespace {

using devservice::LargeDocument;

std::string whole(const LargeDocument& document, std::size_t most) {
  std::string text;
  for (std::size_t before = 1; before != text.size();) {
    before = text.size();
    document.append(text, text.size(), most);
  }
  return text;
}

TEST(LargeDocumentTest, WithoutRecordsIsStillADocument) {
  EXPECT_EQ(whole(LargeDocument(0), 100), "{\"count\":0,\"records\":[\n]}");
}

TEST(LargeDocumentTest, HasRecordsOfOneSize) {
  const LargeDocument document(2);
  const std::string text = whole(document, 1000);
  EXPECT_EQ(text.size(), document.size());
  const std::size_t start = std::string("{\"count\":2,\"records\":[\n").size();
  EXPECT_EQ(text.substr(start, 41), R"({"number":0,"name":"record 0","text":"xxx)");
  EXPECT_EQ(text.substr(start + LargeDocument::kRecordSize - 5, 45),
            "x\"},\n" + std::string(R"({"number":1,"name":"record 1","text":"xx)"));
  EXPECT_EQ(text.substr(text.size() - 6), "\"} \n]}");
}

TEST(LargeDocumentTest, IsTheSameWhereverItIsCut) {
  const LargeDocument document(30);
  const std::string text = whole(document, 1);
  EXPECT_EQ(text.size(), document.size());
  EXPECT_EQ(whole(document, 300), text);
  for (std::size_t offset = 0; offset < text.size(); ++offset) {
    std::string part;
    document.append(part, offset, 200);
    ASSERT_FALSE(part.empty()) << offset;
    ASSERT_EQ(part, text.substr(offset, part.size())) << offset;
  }
}

}  // namespace
}  // namespace kvltest
