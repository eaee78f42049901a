#include "platform/serialisation/JSONTokens.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace {

using kvl::serialisation::JSONWorkspace;

// Whether a workspace that has read so much is there for the next reader.
bool isKeptAfter(std::size_t textSize) {
  auto workspace = std::make_unique<JSONWorkspace>();
  const auto* const left = workspace.get();
  std::string problem;
  const auto text = std::string(textSize - 1, ' ') + "1";
  EXPECT_EQ(workspace->tokensOf(text, problem).size(), 1U) << problem;
  JSONWorkspace::leave(std::move(workspace));
  // Should it have gone, these take its place in memory.
  std::vector<std::unique_ptr<JSONWorkspace>> others(16);
  for (auto& other : others) other = std::make_unique<JSONWorkspace>();
  return JSONWorkspace::take().get() == left;
}

TEST(JSONWorkspaceTest, IsKeptForTheNextReaderUpToFourMebibytes) {
  constexpr std::size_t kBytesPerPosition = 4;
  constexpr std::size_t kMost = (std::size_t{4} << 20) / kBytesPerPosition;
  EXPECT_TRUE(isKeptAfter(1));
  EXPECT_TRUE(isKeptAfter(kMost));
  EXPECT_FALSE(isKeptAfter(kMost + 1));
}

}  // namespace
