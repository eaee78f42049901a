// Who talks to whom in a comparison, in files for programs of all kinds.
#pragma once

#include "bench/RequestProbe.h"
#include "tests/support/TestCertificates.h"

#include <filesystem>
#include <fstream>

namespace kvlbench {

inline constexpr auto kServerFile = "server.pem";
inline constexpr auto kServerKeyFile = "server-key.pem";

struct TestFiles {
  const kvl::testing::TestIdentity authority = kvl::testing::makeTestAuthority();
  const kvl::testing::TestIdentity server =
      kvl::testing::makeTestIdentity({.commonName = "server"}, &authority);
  const kvl::testing::TestIdentity client =
      kvl::testing::makeTestIdentity({.commonName = "client"}, &authority);

  explicit TestFiles(const std::filesystem::path& folder) {
    std::ofstream(folder / kAuthorityFile) << authority.certificatePEM();
    std::ofstream(folder / kServerFile) << server.certificatePEM();
    std::ofstream(folder / kServerKeyFile) << server.keyPEM();
    std::ofstream(folder / kClientFile) << client.certificatePEM();
    std::ofstream(folder / kClientKeyFile) << client.keyPEM();
  }
};

}  // namespace kvlbench
