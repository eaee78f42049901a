#include "devservice/ClientCertificate.h"
#include "devservice/Json.h"
#include "devservice/Routes.h"

#include <httplib.h>

namespace devservice {

void addStatusRoutes(httplib::Server& server, ServiceState& state) {
  server.Get("/status", [&state](const httplib::Request& request, httplib::Response& response) {
    JsonObject status;
    status.add("service", "kvlocal-devservice")
        .add("startedAt", state.startedAt())
        .add("requests", state.requests())
        .add("client", clientCertificate(request).subject);
    response.set_content(status.text(), kJsonType);
  });
}

}  // namespace devservice
