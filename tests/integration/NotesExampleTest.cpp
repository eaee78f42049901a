// The example host with coroutines, as a program against the development service.
#include "tests/integration/LocalService.h"
#include "tests/support/FolderWait.h"

#include <local/KVLEncodingRoot.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using namespace kvltest;

std::string contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

class NotesExampleTest : public LocalService {
 protected:
  // Whether the example, or what is left of it, has shown this.
  [[nodiscard]] bool shows(const ChildProcess& example, std::string_view text) const {
    return waitForFolder(bus.directory(), example,
                         [&] { return contentOf(output).find(text) != std::string::npos; });
  }

  const std::filesystem::path output = bus.directory() / "notes.txt";
};

TEST_F(NotesExampleTest, ShowsItsOwnNoteAndThoseOfOthersAsTheyCome) {
  offerNotary();
  startService();
  const ChildProcess example({KVL_NOTES_EXAMPLE, "the first note"}, environmentWith({}), output);
  EXPECT_TRUE(shows(example, "201 Created")) << contentOf(output);
  EXPECT_TRUE(shows(example, R"("text":"the first note")")) << contentOf(output);
  establish();
  KVLEncoding::submit(kvl::Dictionary{{"text", "another one"}}, KVLEncoding::RelativePath("/notes"),
                      *session);
  EXPECT_TRUE(shows(example, R"("text":"another one")")) << contentOf(output);
}

TEST_F(NotesExampleTest, IsAtMostThirtyLines) {
  const auto text = contentOf(KVL_NOTES_SOURCE);
  EXPECT_GT(text.size(), 0U);
  EXPECT_LE(std::ranges::count(text, '\n'), 30);
}

}  // namespace
