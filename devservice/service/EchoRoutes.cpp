// What the service has seen of its clients: /echo and /status.

#include "devservice/OpenSSLPointers.h"
#include "devservice/service/FormBody.h"
#include "devservice/service/Json.h"
#include "devservice/service/Routes.h"
#include "devservice/service/ServiceState.h"

#include <glib.h>
#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <simdjson.h>

namespace devservice {
namespace {

constexpr std::size_t kLongestValue = 200;

bool isText(std::string_view body) {
  return g_utf8_validate(body.data(), static_cast<gssize>(body.size()), nullptr) != FALSE;
}

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                   reinterpret_cast<const unsigned char*>(bytes.data()),
                                   static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  return text;
}

std::string printable(std::string_view text) {
  return isText(text) ? std::string(text) : base64(text);
}

JsonObject headersOf(const httplib::Request& request) {
  JsonObject headers;
  for (const auto& [name, value] : request.headers) headers.add(printable(name), printable(value));
  return headers;
}

// Who is at the other end of a request.
struct ClientCertificate {
  std::string subject;
  std::string issuer;
  std::string expiry;  // such as "May  1 12:34:56 2024 GMT"
};

std::string contentOf(BIO* memory) {
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(memory, &bytes);
  return std::string(bytes, static_cast<std::size_t>(size));
}

std::string nameText(const X509_NAME* name) {
  const BioPtr memory(BIO_new(BIO_s_mem()));
  X509_NAME_print_ex(memory.get(), name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
  return contentOf(memory.get());
}

std::string timeText(const ASN1_TIME* time) {
  const BioPtr memory(BIO_new(BIO_s_mem()));
  ASN1_TIME_print(memory.get(), time);
  return contentOf(memory.get());
}

ClientCertificate clientCertificate(const httplib::Request& request) {
  const CertificatePtr certificate(SSL_get1_peer_certificate(request.ssl));
  if (!certificate) return {};
  return {nameText(X509_get_subject_name(certificate.get())),
          nameText(X509_get_issuer_name(certificate.get())),
          timeText(X509_get0_notAfter(certificate.get()))};
}

JsonObject clientOf(const httplib::Request& request) {
  const ClientCertificate certificate = clientCertificate(request);
  JsonObject client;
  client.add("subject", certificate.subject)
      .add("issuer", certificate.issuer)
      .add("expiry", certificate.expiry);
  return client;
}

// A text as it is, other bytes in base64; `size` is that of the bytes.
void addContent(JsonObject& object, const char* name, std::string_view content) {
  object.add("size", static_cast<std::int64_t>(content.size()));
  if (isText(content)) {
    object.add(name, content);
  } else {
    object.add(std::string(name) + "Base64", base64(content));
  }
}

JsonObject partOf(const FormPart& part) {
  JsonObject object;
  object.add("name", printable(part.name));
  if (part.filename) object.add("filename", printable(*part.filename));
  if (part.contentType) object.add("contentType", printable(*part.contentType));
  addContent(object, "value", part.content);
  return object;
}

void addParts(JsonObject& document, const std::string& type, const std::string& body) {
  const auto form = parseForm(type, body);
  if (const auto* fault = std::get_if<std::string>(&form)) {
    document.add("formError", *fault);
    return;
  }
  JsonArray parts;
  for (const FormPart& part : std::get<std::vector<FormPart>>(form)) parts.add(partOf(part).text());
  document.addJson("parts", parts.text());
}

void addDocument(JsonObject& document, const std::string& body) {
  simdjson::dom::parser parser;
  const simdjson::error_code error = parser.parse(body).error();
  if (error == simdjson::SUCCESS) {
    document.addJson("json", body);
  } else {
    document.add("jsonError", simdjson::error_message(error));
  }
}

// What a body holds, for the types that the framework sends.
void addMeaning(JsonObject& document, const httplib::Request& request, const std::string& body) {
  const std::string type = request.get_header_value("Content-Type");
  if (type.starts_with(kFormType)) addParts(document, type, body);
  if (type == kJsonType) addDocument(document, body);
}

std::string queryOf(const httplib::Request& request) {
  const std::size_t mark = request.target.find('?');
  return mark == std::string::npos ? std::string() : request.target.substr(mark + 1);
}

std::string descriptionOf(const httplib::Request& request, const std::string& body) {
  JsonObject document;
  document.add("method", request.method)
      .add("path", printable(request.path))
      .add("query", printable(queryOf(request)))
      .add("headers", headersOf(request));
  addContent(document, "body", body);
  addMeaning(document, request, body);
  document.add("client", clientOf(request));
  return document.text();
}

// The name and size of a file, the size of a long text, and any other text itself.
std::string valueOf(const FormPart& part) {
  const std::string size = std::to_string(part.content.size()) + " bytes";
  if (part.filename) return printable(*part.filename) + ", " + size;
  return part.content.size() > kLongestValue ? size : printable(part.content);
}

JsonObject inputsOf(const httplib::Request& request, const std::string& body) {
  JsonObject inputs;
  const auto form = parseForm(request.get_header_value("Content-Type"), body);
  if (const auto* parts = std::get_if<std::vector<FormPart>>(&form)) {
    for (const FormPart& part : *parts) inputs.add(printable(part.name), valueOf(part));
  }
  return inputs;
}

void answer(const httplib::Request& request, const std::string& body, httplib::Response& response) {
  const std::string as = request.get_param_value("as");
  if (as == "body") {
    response.set_content(body, request.get_header_value("Content-Type"));
  } else if (as == "inputs") {
    response.set_content(inputsOf(request, body).text(), kJsonType);
  } else {
    response.set_content(descriptionOf(request, body), kJsonType);
  }
}

// The library reads no body of such a request and would take it for the next one, unless the
// connection ends: it does when whoever supplies the answer gives up, which is after its last byte.
void echoWithoutBody(const httplib::Request& request, httplib::Response& response) {
  if (!hasBody(request)) return answer(request, {}, response);
  response.set_header("Connection", "close");
  response.set_chunked_content_provider(
      kJsonType, [text = descriptionOf(request, {})](std::size_t, httplib::DataSink& sink) {
        sink.write(text.data(), text.size());
        sink.done();
        return false;
      });
}

void announce(const httplib::Request& request, const std::string& body, Feed& feed) {
  JsonObject data;
  data.add("method", request.method).add("query", printable(queryOf(request)));
  data.add("inputs", inputsOf(request, body));
  feed.publish("submitted", data.text());
}

void status(const ServiceState& state, const httplib::Request& request,
            httplib::Response& response) {
  JsonObject document;
  document.add("service", "kvlocal-devservice")
      .add("startedAt", state.startedAt())
      .add("requests", state.requests())
      .add("client", clientCertificate(request).subject);
  response.set_content(document.text(), kJsonType);
}

}  // namespace

void addEchoRoutes(httplib::Server& server, ServiceState& state) {
  const auto echo = [&state](const httplib::Request& request, httplib::Response& response,
                             const httplib::ContentReader& reader) {
    const auto body = readBody(request, reader);
    if (!body) return;
    announce(request, *body, state.feed());
    answer(request, *body, response);
  };
  server.Get("/status", [&state](const httplib::Request& request, httplib::Response& response) {
    status(state, request, response);
  });
  server.Get("/echo", echoWithoutBody);
  server.Post("/echo", echo);
  server.Put("/echo", echo);
  server.Patch("/echo", echo);
  server.Delete("/echo", echo);
}

}  // namespace devservice
