// What a server of somebody else needs to take the development service's place.
#pragma once

#include <filesystem>

namespace kvltest {

// For the `server { }` of an nginx whose folder holds the files below.
inline constexpr const char* kServerCertificates = R"(
    ssl_certificate server.pem;
    ssl_certificate_key server.key;
    ssl_client_certificate anchor.pem;
    ssl_verify_client on;)";

// Writes to `folder`, from the authority of `stateDirectory`: server.pem and server.key for
// 127.0.0.1, the anchor as anchor.pem, and a client's identity as client.pem and client.key.
void writeServerFiles(const std::filesystem::path& stateDirectory,
                      const std::filesystem::path& folder);

}  // namespace kvltest
