// Who is at the other end of a request.
#pragma once

#include <string>

namespace httplib {
struct Request;
}

namespace devservice {

struct ClientCertificate {
  std::string subject;
  std::string issuer;
  std::string expiry;  // such as "May  1 12:34:56 2024 GMT"
};

[[nodiscard]] ClientCertificate clientCertificate(const httplib::Request& request);

}  // namespace devservice
