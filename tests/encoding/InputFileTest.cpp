#include <local/KVLInputFile.h>
#include <local/platform/Value.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace {

TEST(InputFileTest, KeepsWhatItWasMadeOf) {
  const auto file = KVLInputFile::newWithFilename("a.txt", "text/x-a", kvl::Data::fromText("abc"));
  EXPECT_EQ(file->filename(), "a.txt");
  EXPECT_EQ(file->contentType(), "text/x-a");
  EXPECT_EQ(file->data()->text(), "abc");
}

TEST(InputFileTest, NameMayBeAbsentOrEmptyAndDataAbsent) {
  EXPECT_EQ(KVLInputFile::newWithFilename(std::nullopt, "t/t", std::nullopt)->filename(),
            std::nullopt);
  EXPECT_EQ(KVLInputFile::newWithFilename("", "t/t", std::nullopt)->filename(), "");
  EXPECT_EQ(KVLInputFile::newWithFilename("", "t/t", std::nullopt)->data(), std::nullopt);
}

TEST(InputFileTest, MadeWithoutAMediaTypeIsAnOctetStream) {
  EXPECT_EQ(KVLInputFile::newWithFilename("a", std::nullopt, kvl::Data())->contentType(),
            "application/octet-stream");
  EXPECT_EQ(KVLInputFile::newWithFilename("a", "", kvl::Data())->contentType(),
            "application/octet-stream");
}

TEST(InputFileTest, SettersStoreWhatTheyAreGiven) {
  const auto file = KVLInputFile::newWithFilename("a", "t/t", kvl::Data());
  file->setContentType("");
  EXPECT_EQ(file->contentType(), "");
  file->setContentType(std::nullopt);
  EXPECT_EQ(file->contentType(), std::nullopt);
  file->setFilename("b");
  EXPECT_EQ(file->filename(), "b");
  file->setFilename(std::nullopt);
  EXPECT_EQ(file->filename(), std::nullopt);
  file->setData(kvl::Data::fromText("x"));
  EXPECT_EQ(file->data()->text(), "x");
  file->setData(std::nullopt);
  EXPECT_EQ(file->data(), std::nullopt);
}

TEST(InputFileTest, SharesItsDataWithWhoGaveIt) {
  const auto data = kvl::Data::fromText("abc");
  const auto file = KVLInputFile::newWithFilename("a", "t/t", data);
  EXPECT_EQ(file->data()->data(), data.data());
}

TEST(InputFileTest, StandsInAValueAsTheSameObject) {
  const auto file = KVLInputFile::newWithFilename("a", "t/t", kvl::Data());
  const kvl::Value value = file;
  EXPECT_EQ(value.object(), file);
  EXPECT_EQ(value.typeName(), "KVLInputFile");
  EXPECT_EQ(kvl::Dictionary({{"name", "f"}, {"value", file}})["value"].object(), file);
  EXPECT_EQ((kvl::Array{file, 1}[0].object()), file);
}

TEST(InputFileTest, DescribesItselfWithoutItsContent) {
  const auto file = KVLInputFile::newWithFilename("a.txt", "text/x-a", kvl::Data::fromText("abc"));
  EXPECT_EQ(file->description(), "<KVLInputFile a.txt, text/x-a, 3 bytes>");
  file->setFilename(std::nullopt);
  file->setContentType(std::nullopt);
  file->setData(std::nullopt);
  EXPECT_EQ(file->description(), "<KVLInputFile (null), (null), (null)>");
}

TEST(InputFileTest, PropertiesAreReadAndWrittenWhole) {
  const auto file = KVLInputFile::newWithFilename(std::string(100, 'a'), "t/t", kvl::Data());
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    while (!stop) {
      file->setFilename(std::string(100, 'b'));
      file->setFilename(std::string(100, 'a'));
    }
  });
  for (int i = 0; i < 1000; ++i) {
    const auto name = *file->filename();
    ASSERT_EQ(name, std::string(100, name[0]));
  }
  stop = true;
  writer.join();
}

}  // namespace
