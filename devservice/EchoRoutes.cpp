#include "devservice/ClientCertificate.h"
#include "devservice/Json.h"
#include "devservice/Routes.h"

#include <glib.h>
#include <httplib.h>
#include <openssl/evp.h>

namespace devservice {
namespace {

bool isText(const std::string& body) {
  return g_utf8_validate(body.data(), static_cast<gssize>(body.size()), nullptr) != FALSE;
}

std::string base64(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                   reinterpret_cast<const unsigned char*>(bytes.data()),
                                   static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  return text;
}

std::string printable(const std::string& text) {
  return isText(text) ? text : base64(text);
}

JsonObject headersOf(const httplib::Request& request) {
  JsonObject headers;
  for (const auto& [name, value] : request.headers) headers.add(printable(name), printable(value));
  return headers;
}

JsonObject clientOf(const httplib::Request& request) {
  const ClientCertificate certificate = clientCertificate(request);
  JsonObject client;
  client.add("subject", certificate.subject)
      .add("issuer", certificate.issuer)
      .add("expiry", certificate.expiry);
  return client;
}

void echo(const httplib::Request& request, httplib::Response& response) {
  const std::size_t mark = request.target.find('?');
  const std::string query =
      mark == std::string::npos ? std::string() : request.target.substr(mark + 1);
  JsonObject document;
  document.add("method", request.method)
      .add("path", printable(request.path))
      .add("query", printable(query))
      .add("headers", headersOf(request))
      .add(isText(request.body) ? "body" : "bodyBase64", printable(request.body))
      .add("client", clientOf(request));
  response.set_content(document.text(), kJsonType);
}

}  // namespace

void addEchoRoutes(httplib::Server& server) {
  server.Get("/echo", echo);
  server.Post("/echo", echo);
  server.Put("/echo", echo);
}

}  // namespace devservice
