#include "tests/encoding/OpenFile.h"
#include "tests/support/Pipe.h"

#include <local/KVLExtensionsURLRequest.h>
#include <local/KVLInputFile.h>
#include <local/platform/Log.h>
#include <local/platform/Value.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::string_literals;
using kvltest::OpenFile;

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

std::optional<kvl::Error> bodyOf(const std::shared_ptr<KVLInputFile>& file, std::string& body) {
  kvl::URLRequest request("a");
  const kvl::Array inputs{kvl::Dictionary{{"name", "f"}, {"value", file}}};
  auto error = KVLExtensions::setHTTPBodyWithInputs(request, inputs);
  if (request.body()) body = request.body()->text();
  return error;
}

TEST(InputFileTest, AnOpenFileIsReadWhenItIsNeeded) {
  const auto open = std::make_unique<OpenFile>("-abc\0def"s);
  ASSERT_EQ(lseek(open->descriptor(), 1, SEEK_SET), 1);
  const auto file = KVLInputFile::newWithDescriptor("a.txt", "text/x-a", open->descriptor());
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->description(), "<KVLInputFile a.txt, text/x-a, 7 bytes>");
  ASSERT_EQ(pwrite(open->descriptor(), "B", 1, 2), 1);
  EXPECT_EQ(file->data()->text(), "aBc\0def"s);
  std::string body;
  EXPECT_EQ(bodyOf(file, body), std::nullopt);
  EXPECT_NE(body.find("filename=\"a.txt\"\nContent-Type: text/x-a\n\naBc\0def\n--"s),
            std::string::npos);
  EXPECT_EQ(lseek(open->descriptor(), 0, SEEK_CUR), 1);
}

TEST(InputFileTest, AnOpenFileMayBeClosedByWhoOpenedIt) {
  auto open = std::make_unique<OpenFile>("abc");
  const auto file = KVLInputFile::newWithDescriptor("a", std::nullopt, open->descriptor());
  open.reset();
  EXPECT_EQ(file->data(), kvl::Data::fromText("abc"));
  file->setData(kvl::Data::fromText("other"));
  EXPECT_EQ(file->data(), kvl::Data::fromText("other"));
}

// Longer than one read, from where the descriptor stands to the end that the file had.
TEST(InputFileTest, ALongOpenFileIsReadToItsEndAndNoFurther) {
  std::string bytes;
  while (bytes.size() < 700'000) bytes += std::to_string(bytes.size()) + ",";
  const OpenFile open(bytes);
  ASSERT_EQ(lseek(open.descriptor(), 5, SEEK_SET), 5);
  const auto file = KVLInputFile::newWithDescriptor("a", std::nullopt, open.descriptor());
  const auto size = static_cast<off_t>(bytes.size());
  ASSERT_EQ(pwrite(open.descriptor(), "more", 4, size), 4);
  EXPECT_TRUE(file->data() == kvl::Data::fromText(std::string_view(bytes).substr(5)));
  std::string body;
  EXPECT_EQ(bodyOf(file, body), std::nullopt);
  EXPECT_EQ(body.find(bytes.substr(5) + "\n--"), body.find("\n\n") + 2);
}

TEST(InputFileTest, BehindTheEndOfAnOpenFileIsNothing) {
  const OpenFile open("abc");
  for (const off_t place : {3, 4, 1'000}) {
    ASSERT_EQ(lseek(open.descriptor(), place, SEEK_SET), place);
    const auto file = KVLInputFile::newWithDescriptor("a", "b", open.descriptor());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->data(), kvl::Data()) << place;
  }
}

TEST(InputFileTest, AnOpenFileThatCannotBeReadFailsAsTheSystemSays) {
  const OpenFile open("abc");
  const auto name = "/proc/self/fd/" + std::to_string(open.descriptor());
  const int writable = ::open(name.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(writable, 0);
  const auto file = KVLInputFile::newWithDescriptor("a", "b", writable);
  close(writable);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->data(), std::nullopt);
  std::string body;
  EXPECT_EQ(bodyOf(file, body), kvl::Error(kvl::NSPOSIXErrorDomain, EBADF));
}

// The numbers of the descriptors that are open on the same file.
std::vector<int> descriptorsOf(int descriptor) {
  const std::filesystem::path all("/proc/self/fd");
  std::vector<int> same;
  std::error_code gone;
  for (const auto& entry : std::filesystem::directory_iterator(all)) {
    if (std::filesystem::equivalent(entry.path(), all / std::to_string(descriptor), gone))
      same.push_back(std::stoi(entry.path().filename().string()));
  }
  return same;
}

TEST(InputFileTest, ItsOwnDescriptorIsClosedWithItAndInNewPrograms) {
  const OpenFile open(std::string(10, 'x'));
  auto file = KVLInputFile::newWithDescriptor("a", "b", open.descriptor());
  const auto descriptors = descriptorsOf(open.descriptor());
  EXPECT_EQ(descriptors.size(), 2U);
  for (const int each : descriptors) EXPECT_EQ(fcntl(each, F_GETFD), FD_CLOEXEC);
  file.reset();
  EXPECT_EQ(descriptorsOf(open.descriptor()), std::vector<int>{open.descriptor()});
}

TEST(InputFileTest, AFormWhoseOpenFileHasBecomeShorterIsNotMade) {
  const OpenFile open("abc");
  const auto file = KVLInputFile::newWithDescriptor("a", std::nullopt, open.descriptor());
  ASSERT_EQ(ftruncate(open.descriptor(), 1), 0);
  std::string body;
  const auto error = bodyOf(file, body);
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kvl::NSCocoaErrorDomain, kvl::NSFileReadUnknownError));
  EXPECT_EQ(body, "");
  EXPECT_EQ(file->data(), std::nullopt);
}

// Whatever call has left in errno before: it says nothing about a file that has ended.
TEST(InputFileTest, TheEndOfAShorterOpenFileIsNoInterruption) {
  const OpenFile open("abc");
  const auto file = KVLInputFile::newWithDescriptor("a", std::nullopt, open.descriptor());
  ASSERT_EQ(ftruncate(open.descriptor(), 1), 0);
  errno = EINTR;
  EXPECT_EQ(file->data(), std::nullopt);
}

TEST(InputFileTest, AnOpenFileThatNoMemoryHoldsIsAnErrorAndNoException) {
  const OpenFile open("");
  ASSERT_EQ(ftruncate(open.descriptor(), std::numeric_limits<off_t>::max()), 0);
  const auto file = KVLInputFile::newWithDescriptor("a", std::nullopt, open.descriptor());
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->data(), std::nullopt);
  kvl::URLRequest request("a");
  const kvl::Dictionary input{{"name", "f"}, {"value", file}};
  for (const auto& inputs : {kvl::Array{input}, kvl::Array{input, input, input}}) {
    const auto error = KVLExtensions::setHTTPBodyWithInputs(request, inputs);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->is(kvl::NSPOSIXErrorDomain, ENOMEM)) << kvl::describe(*error);
  }
}

TEST(InputFileTest, OnlyRegularFilesCanBeReadLater) {
  const kvltest::Pipe pipe;
  for (const auto& [descriptor, code] : {std::pair(pipe.writeEnd(), EINVAL), {-1, EBADF}}) {
    std::optional<kvl::Error> error;
    EXPECT_EQ(KVLInputFile::newWithDescriptor("a", "b", descriptor, &error), nullptr);
    EXPECT_EQ(error, kvl::Error(kvl::NSPOSIXErrorDomain, code));
  }
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
