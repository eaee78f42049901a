#include "tests/images/HostileFiles.h"

#include "tests/support/PrivateBus.h"
#include "tests/support/Sanitized.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace kvltest {
namespace {

struct Files {
  Files() {
    ChildProcess script({"python3", "-B", KVL_HOSTILE_SCRIPT, (folder.path() / "files").string()},
                        environmentWith({}), folder.path() / "log");
    if (script.wait() != 0) throw std::runtime_error("no hostile images were made");
  }

  TemporaryDirectory folder;
  std::filesystem::path files = folder.path() / "files";
};

}  // namespace

const std::filesystem::path& hostileFolder() {
  static const Files files;
  return files.files;
}

bool isLongRun() {
  return std::getenv("KVL_HOSTILE") != nullptr;
}

std::vector<std::string> hostileNames() {
  std::vector<std::string> all;
  for (const auto& entry : std::filesystem::directory_iterator(hostileFolder())) {
    all.push_back(entry.path().filename());
  }
  std::ranges::sort(all);
  if (!kSanitized || isLongRun()) return all;
  constexpr std::size_t kOneOf = 10;
  std::vector<std::string> some;
  for (std::size_t i = 4; i < all.size(); i += kOneOf) some.push_back(all[i]);
  return some;
}

}  // namespace kvltest
