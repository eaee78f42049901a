#include "devservice/CommandLine.h"

#include "devservice/Log.h"
#include "devservice/StateDirectory.h"

#include <local/platform/PrintableText.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <string_view>

namespace devservice {
namespace {

const std::map<std::string, Fault> kFaults{
    {"none", Fault::none},
    {"error", Fault::error},
    {"empty", Fault::empty},
    {"no-url", Fault::noURL},
    {"bad-anchor", Fault::badAnchor},
    {"bad-certificate", Fault::badCertificate},
    {"no-certificate", Fault::noCertificate},
    {"other-key", Fault::otherKey},
    {"rubbish", Fault::rubbish},
    {"hang", Fault::hang},
    {"exit", Fault::exit},
};

constexpr int kHighestPort = 65535;
constexpr int kMostThreads = 20'000;

constexpr const char* kRoutesHelp =
    "Routes, each with the parameters that it takes:\n"
    "  /status\n"
    "  /echo?as=                        what was sent, of any method, form or document\n"
    "  /slow?ms=&pieces=                late, or in pieces with pauses\n"
    "  /hold?count=                     an answer when so many wait for one\n"
    "  /bytes?count=                    so many bytes\n"
    "  /large?megabytes=                a large document\n"
    "  /code?status=&body=              any status, any body\n"
    "  /redirect?to=&status=\n"
    "  /reset?after=                    a connection that breaks in mid-body\n"
    "  /image?format=&role=&side=       png or svg\n"
    "  /menu                            a menu, whose forms go to /echo\n"
    "  /desktop                         what a desktop application shows of a service\n"
    "  /icon/NAME                       an icon of its menus\n"
    "  /notes                           notes to list, add and delete (/notes/ID)\n"
    "  /notes/page                      the same as a page for a web view\n"
    "  /events?interval=&last=&...      an event stream\n"
    "  /feed?interval=                  what has been sent to /echo and /notes, as an event "
    "stream\n"
    "and the files of --documents, which go before all others.";

template <class Options>
void addCommonOptions(CLI::App& app, Options& options) {
  options.state = StateDirectory::defaultPath();
  app.add_option("--state", options.state, "Directory of the authority and of service.url")
      ->type_name("DIR")
      ->capture_default_str();
  app.add_flag("--new-ca", options.newAuthority, "Make a new authority, even if there is one");
}

template <class Duration>
void addDuration(CLI::App& app, const std::string& name, Duration& duration,
                 const std::string& help) {
  app.add_option_function<std::int64_t>(
         name, [&duration](std::int64_t count) { duration = Duration(count); }, help)
      ->default_str(std::to_string(duration.count()));
}

bool write(std::FILE* file, std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
}

// Writes help, or what is wrong; the status with which to exit.
int finish(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream help;
  std::ostringstream faults;
  const int status = app.exit(error, help, faults);
  if (!write(stdout, help.str())) {
    log(std::string("standard output cannot be written: ") + std::strerror(errno));
    return 1;
  }
  std::istringstream lines(faults.str());
  for (std::string line; std::getline(lines, line);) write(stderr, kvl::printable(line) + '\n');
  return status;
}

template <class Options>
std::variant<Options, int> parse(CLI::App& app, Options& options, int count, char** arguments) {
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return finish(app, error);
  }
  return options;
}

}  // namespace

std::variant<NotaryOptions, int> parseNotaryOptions(int count, char** arguments) {
  CLI::App app(
      "A notary for development: claims korvale.vandrel.local.notary on the session bus and issues "
      "client certificates for the development service.");
  NotaryOptions options;
  addCommonOptions(app, options);
  addDuration(app, "--lifetime", options.lifetime,
              "Seconds for which client certificates are valid; negative: expired ones");
  app.add_option("--url", options.urls,
                 "URL to hand out, may be repeated (default: what service.url says)");
  addDuration(app, "--delay", options.delay, "Milliseconds to wait before each answer");
  std::vector<std::string> faults;
  for (const auto& [name, fault] : kFaults) faults.push_back(name);
  app.add_option_function<std::string>(
         "--fault", [&options](const std::string& name) { options.fault = kFaults.at(name); },
         "What to do wrong")
      ->check(CLI::IsMember(faults));
  app.add_option("--fault-count", options.faultCount, "Do so for the first N requests only");
  return parse(app, options, count, arguments);
}

std::variant<ServiceOptions, int> parseServiceOptions(int count, char** arguments) {
  CLI::App app(
      "A local service for development: HTTPS on 127.0.0.1 for clients that the development notary "
      "has given a certificate.");
  app.footer(kRoutesHelp);
  ServiceOptions options;
  addCommonOptions(app, options);
  app.add_option("--port", options.port, "Port, 0 for any")
      ->check(CLI::Range(0, kHighestPort))
      ->capture_default_str();
  app.add_option("--threads", options.threads, "Connections that are served at once")
      ->check(CLI::Range(1, kMostThreads))
      ->capture_default_str();
  addDuration(app, "--patience", options.patience,
              "Seconds of silence that end a handshake or a request");
  app.add_option("--documents", options.documents, "Directory whose files are served")
      ->type_name("DIR")
      ->check(CLI::ExistingDirectory.description(""));
  app.add_option("--server-name", options.serverNames,
                 "Name or address in the server certificate instead of localhost, 127.0.0.1 and "
                 "::1; may be repeated");
  addDuration(app, "--server-lifetime", options.serverLifetime,
              "Seconds for which the server certificate is valid");
  app.add_flag("--expired", options.expired, "Use a server certificate that has expired");
  return parse(app, options, count, arguments);
}

}  // namespace devservice
