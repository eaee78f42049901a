#include "tests/integration/ServerFiles.h"

#include "devservice/Authority.h"

#include <fstream>

namespace kvltest {
namespace {

constexpr std::chrono::seconds kLifetime{3600};

}  // namespace

void writeServerFiles(const std::filesystem::path& stateDirectory,
                      const std::filesystem::path& folder) {
  const devservice::StateDirectory state(stateDirectory);
  const auto authority = devservice::Authority::open(state);
  const auto key = devservice::makeKey();
  const auto server =
      authority.issueServer(key.get(), {"127.0.0.1"}, {devservice::kClockTolerance, kLifetime});
  const auto client = authority.issueClient(key.get(), "nginx", kLifetime);
  std::ofstream(folder / "server.pem") << devservice::pemText(server.get());
  std::ofstream(folder / "client.pem") << devservice::pemText(client.get());
  for (const auto* name : {"server.key", "client.key"}) {
    std::ofstream(folder / name) << devservice::pemText(key.get());
  }
  std::ofstream(folder / "anchor.pem") << authority.anchorPem();
}

}  // namespace kvltest
