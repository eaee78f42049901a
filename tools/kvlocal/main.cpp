// The command line client: asks the notary for an identity and talks to the service with it. Here
// are the start of the program, its common options, its table of commands and its signals.

#include "tools/kvlocal/Arguments.h"
#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Help.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Text.h"
#include "tools/kvlocal/Words.h"

#include <local/platform/HostApplication.h>
#include <local/platform/Log.h>
#include <local/platform/Text.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace kvlocal {
namespace {

// A standard descriptor that is closed would go to the next thing that is opened, a key store or a
// connection. One that is open the other way round fails as a closed one does, with EBADF.
void occupyStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) != -1 || errno != EBADF) continue;
    // The lowest that is free is the one that is closed.
    (void)open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

// Turns SIGINT, SIGTERM and SIGHUP into an interrupt of the rendezvous as long as it lives. One
// that the rendezvous does not hear ends the process at once, for a user whose terminal or pipe
// blocks the first. Make it before any other thread starts: threads inherit that these signals are
// blocked.
class Interruption {
 public:
  explicit Interruption(std::shared_ptr<Rendezvous> rendezvous);
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

 private:
  void watch();

  const std::shared_ptr<Rendezvous> rendezvous_;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

sigset_t watchedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, number);
  return set;
}

Interruption::Interruption(std::shared_ptr<Rendezvous> rendezvous)
    : rendezvous_(std::move(rendezvous)) {
  const sigset_t set = watchedSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  thread_ = std::thread([this] { watch(); });
}

Interruption::~Interruption() {
  ending_ = true;
  // It is blocked and only wakes the thread. NOLINTNEXTLINE(bugprone-bad-signal-to-kill-thread)
  pthread_kill(thread_.native_handle(), SIGTERM);
  thread_.join();
}

void Interruption::watch() {
  const sigset_t set = watchedSignals();
  int number = 0;
  while (sigwait(&set, &number) == 0 && !ending_)
    if (!rendezvous_->interrupt(number)) std::_Exit(static_cast<int>(ExitCode::interrupted));
}

// With one line per problem on standard error already, the framework's lines would repeat it.
void routeLog(bool verbose) {
  kvl::setLogSink([verbose](std::string_view line) {
    if (verbose) complain(line);
  });
}

void declareSettings(CLI::App& parser, Settings& settings) {
  parser
      .add_option("--notary", settings.notaryPath,
                  tr("Path handed to the notary (default: $korvale_vandrel_notary)"))
      ->type_name("PATH")
      ->check(textCheck());
  parser
      .add_option("--timeout", settings.timeoutSeconds,
                  tr("How long commands keep trying to reach notary and service, then the "
                     "longest silence of get's request, and how long any other whole answer may "
                     "take (default: the first trial decides)"))
      ->type_name("SECONDS")
      ->check(secondsCheck());
  parser
      .add_option("--identifier", settings.identifier,
                  tr("Host identifier under which the keys are kept"))
      ->type_name("ID")
      ->capture_default_str()
      ->check(identifierCheck());
  parser.add_flag("--json", settings.json, tr("Write JSON, one object a line"));
  parser.add_flag("--verbose", settings.verbose, tr("Write the framework's log to standard error"));
}

// In the order in which --help shows them.
std::array<Command, 12> commands() {
  return {statusCommand(), getCommand(),  submitCommand(),   formCommand(),
          imageCommand(),  menuCommand(), renderCommand(),   watchCommand(),
          eventsCommand(), csrCommand(),  identityCommand(), devCommand()};
}

using Runners = std::map<const CLI::App*, Runner>;

Runners declareCommands(CLI::App& parser) {
  Runners runners;
  for (const Command& command : commands()) {
    CLI::App* const own = parser.add_subcommand(command.name, tr(command.summary));
    own->group(tr("Subcommands"));
    own->fallthrough();
    runners[own] = command.prepare(*own);
  }
  parser.require_subcommand(1);
  return runners;
}

// Whether the words ask for JSON, when they cannot be parsed.
bool asksForJSON(int argc, char** argv) {
  for (const std::string_view word : std::span(argv, static_cast<std::size_t>(argc))) {
    if (word == "--") break;
    if (word == "--json") return true;
  }
  return false;
}

// The parser says no more than that something is missing when a command is not known.
std::string faultText(const CLI::App& parser, const CLI::ParseError& error) {
  if (!parser.get_subcommands().empty()) return localisedFault(error);
  const auto words = parser.remaining();
  const auto isCommand = [](const std::string& word) { return !word.starts_with('-'); };
  const auto unknown = std::ranges::find_if(words, isCommand);
  if (unknown != words.end()) return tr("%@ is no command", kvl::jsonText(*unknown));
  return words.empty() ? localisedFault(error)
                       : tr("%@ is no option", kvl::jsonText(words.front()));
}

ExitCode endParsing(const CLI::App& parser, const CLI::ParseError& error, bool json) {
  // Help and version end the parsing the same way, with status 0.
  if (error.get_name() == "CallForVersion") return printLine(error.what());
  if (error.get_exit_code() == 0) return print(wrapped(parser.help(), outputWidth()));
  const ExitCode result = fail(json, ExitCode::usage, faultText(parser, error));
  complain(tr("--help tells how it is used"));
  return result;
}

int run(const Runner& runner, const Settings& settings) {
  // Without a signal, a reader that goes away is an error of writing, and the keys are still
  // removed.
  signal(SIGPIPE, SIG_IGN);
  routeLog(settings.verbose);
  kvl::setHostIdentifier(settings.identifier);
  const auto rendezvous = std::make_shared<Rendezvous>();
  const Interruption interruption(rendezvous);
  return static_cast<int>(runner({settings, rendezvous}));
}

int runProgram(int argc, char** argv) {
  if (asksForJSON(argc, argv)) kvl::setMessageLocales("en");  // texts for programs
  CLI::App parser(tr("Talks to the local service with an identity from the notary."), "kvlocal");
  localiseHelp(parser);
  parser.set_version_flag("--version", "kvlocal " KVLOCAL_VERSION,
                          tr("Display program version information and exit"));
  parser.footer(tr(kExitCodesHelp));
  parser.get_formatter()->column_width(std::min<std::size_t>(30, outputWidth() / 3));
  Settings settings;
  declareSettings(parser, settings);
  const Runners runners = declareCommands(parser);
  try {
    parser.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return static_cast<int>(endParsing(parser, error, asksForJSON(argc, argv)));
  }
  return run(runners.at(parser.get_subcommands().front()), settings);
}

}  // namespace
}  // namespace kvlocal

int main(int argc, char** argv) {
  kvlocal::occupyStandardDescriptors();
  return kvlocal::runProgram(argc, argv);
}
