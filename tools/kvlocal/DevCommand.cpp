// The command dev: the development notary and service on a bus of their own, for as long as it runs
// or while another program does.
#include "tools/kvlocal/ChildProcess.h"
#include "tools/kvlocal/Command.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Output.h"
#include "tools/kvlocal/Words.h"

#include <local/platform/Text.h>
#include <local/platform/Value.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

namespace kvlocal {
namespace {

constexpr std::string_view kBusVariable = "DBUS_SESSION_BUS_ADDRESS";
// What the two programs log once they can be used.
constexpr std::string_view kNotaryIsThere = "claimed korvale.vandrel.local.notary";
constexpr std::string_view kServiceIsThere = "listening on ";
// As shells have it, for a command that cannot be started.
constexpr int kCannotBeRun = 126;
constexpr int kNotFound = 127;

struct DevOptions {
  std::string state;
  std::string documents;
  std::vector<std::string> command;
};

// A folder that nobody else can look into; it goes with all that is in it.
class PrivateFolder {
 public:
  PrivateFolder() {
    std::error_code error;
    const auto parent = std::filesystem::temp_directory_path(error);
    std::string pattern = (error ? "/tmp" : parent) / "kvlocal-dev-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~PrivateFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  // Empty when it could not be made; errno says why then.
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// The address of a bus whose socket is the file. Only such characters stand for themselves there
// (and all of them do so in XML).
std::string addressOf(const std::filesystem::path& socket) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_/.";
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string address = "unix:path=";
  for (const char character : socket.native()) {
    const auto byte = static_cast<unsigned char>(character);
    if (kPlain.find(character) != std::string_view::npos) {
      address += character;
    } else {
      address += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return address;
}

// Nothing is activated on this bus: a key store or a notary of the user's would be the user's own.
std::string busConfiguration(const std::string& address) {
  return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>)" +
         address + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
}

std::string busVariable(const std::string& address) {
  return std::string(kBusVariable) + "=" + address;
}

// The one beside this program, as where both have been built or installed; else one of PATH's.
std::string programNamed(const std::string& name) {
  std::error_code error;
  const auto beside = std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / name;
  return !error && access(beside.c_str(), X_OK) == 0 ? beside.string() : name;
}

// One of the three programs and what it has written, which the rendezvous protects.
struct Peer {
  explicit Peer(const char* program) : name(program) {}

  [[nodiscard]] bool hasEnded() const { return process && process->status(); }
  // Once it has ended, nobody writes its last line any more.
  [[nodiscard]] std::string endText() const {
    return lastLine.empty() ? tr("%@ has ended", name) : tr("%@ has ended: %@", name, lastLine);
  }

  const char* const name;
  std::string lastLine;
  std::string news;                       // what it wrote once it could be used
  bool isMissed = false;                  // its end has been told
  std::unique_ptr<ChildProcess> process;  // goes first: it writes to the others
};

// The bus, the notary and the service.
class Peers {
 public:
  Peers(const Context& context, const DevOptions& options) : context_(context), options_(options) {}

  // `ok`, `interrupted`, or another status after a failure has been told.
  [[nodiscard]] ExitCode start();

  [[nodiscard]] const std::string& address() const { return bus_.news; }
  [[nodiscard]] std::string service() const {
    return service_.news.substr(service_.news.find(kServiceIsThere) + kServiceIsThere.size());
  }
  [[nodiscard]] std::string state() const {
    return options_.state.empty() ? (folder_.path() / "state").string() : options_.state;
  }

  // Whether there is something for `tellEnds`; with the rendezvous' lock held.
  [[nodiscard]] bool hasEnds() const;
  // Tells which of them have ended by themselves since it did last.
  void tellEnds();

 private:
  using IsNews = std::function<bool(std::string_view line)>;

  [[nodiscard]] ExitCode startBus();
  [[nodiscard]] ExitCode startService();
  [[nodiscard]] ExitCode startNotary();
  [[nodiscard]] ExitCode startPeer(Peer& peer, std::vector<std::string> words,
                                   const IsNews& isNews);
  [[nodiscard]] ExitCode awaitNews(const Peer& peer);
  [[nodiscard]] ExitCode failure(const std::string& sentence) const {
    return fail(context_.settings.json, ExitCode::noPeers, sentence);
  }

  const Context& context_;
  const DevOptions& options_;
  const PrivateFolder folder_;
  // They end in the opposite order.
  Peer bus_{"dbus-daemon"};
  Peer service_{"kvlocal-devservice"};
  Peer notary_{"kvlocal-devnotary"};
  const std::array<Peer*, 3> all_{&bus_, &service_, &notary_};
};

ExitCode Peers::start() {
  if (folder_.path().empty()) return failure(tr("no folder can be made: %@", systemWords(errno)));
  const ExitCode bus = startBus();
  if (bus != ExitCode::ok) return bus;
  const ExitCode service = startService();
  return service == ExitCode::ok ? startNotary() : service;
}

ExitCode Peers::startBus() {
  const auto configuration = folder_.path() / "bus.conf";
  const auto text = busConfiguration(addressOf(folder_.path() / "bus"));
  if (const auto fault = writeFile(configuration, text)) return failure(*fault);
  return startPeer(bus_,
                   {"--nofork", "--nopidfile", "--nosyslog", "--print-address=1",
                    "--config-file=" + configuration.string()},
                   [](std::string_view line) { return line.starts_with("unix:"); });
}

ExitCode Peers::startService() {
  std::vector<std::string> words{"--state", state()};
  if (!options_.documents.empty()) words.insert(words.end(), {"--documents", options_.documents});
  return startPeer(service_, std::move(words), [](std::string_view line) {
    return line.find(kServiceIsThere) != std::string_view::npos;
  });
}

ExitCode Peers::startNotary() {
  return startPeer(notary_, {"--state", state()},
                   [](std::string_view line) { return line.ends_with(kNotaryIsThere); });
}

ExitCode Peers::startPeer(Peer& peer, std::vector<std::string> words, const IsNews& isNews) {
  words.insert(words.begin(), programNamed(peer.name));
  ProgramStart start;
  start.words = std::move(words);
  if (!address().empty()) start.variables = {busVariable(address())};
  start.onLine = [this, &peer, isNews](std::string_view line) {
    if (context_.settings.verbose) complain(std::string(peer.name) + ": " + std::string(line));
    context_.rendezvous->change([&] {
      peer.lastLine = line;
      if (peer.news.empty() && isNews(line)) peer.news = line;
    });
  };
  int error = 0;
  peer.process = ChildProcess::start(start, context_.rendezvous, error);
  if (peer.process) return awaitNews(peer);
  return failure(tr("%@ cannot be started: %@", peer.name, systemWords(error)));
}

ExitCode Peers::awaitNews(const Peer& peer) {
  bool isThere = false;
  const auto limit = std::chrono::steady_clock::now() + context_.settings.limit();
  const auto result = context_.rendezvous->wait(limit, [&] {
    isThere = !peer.news.empty();
    return isThere || peer.hasEnded();
  });
  if (isThere) return ExitCode::ok;
  if (result == Rendezvous::Result::interrupted) return ExitCode::interrupted;
  if (result == Rendezvous::Result::met) return failure(peer.endText());
  return failure(tr("%@ did not start in time", peer.name));
}

bool Peers::hasEnds() const {
  return std::ranges::any_of(all_,
                             [](const Peer* peer) { return peer->hasEnded() && !peer->isMissed; });
}

void Peers::tellEnds() {
  std::vector<const Peer*> missed;
  context_.rendezvous->change([&] {
    for (Peer* peer : all_)
      if (peer->hasEnded() && !std::exchange(peer->isMissed, true)) missed.push_back(peer);
  });
  for (const Peer* peer : missed) complain(peer->endText());
}

std::string environmentText(const Peers& peers) {
  return "export " + std::string(kBusVariable) + "='" + peers.address() +
         "'\n# service: " + peers.service() + "\n# state: " + kvl::jsonText(peers.state()) + "\n";
}

std::string environmentJSON(const Peers& peers) {
  const kvl::Dictionary environment{{kBusVariable, peers.address()}};
  return kvl::jsonText(kvl::Dictionary{{"environment", environment},
                                       {"service", peers.service()},
                                       {"state", peers.state()}}) +
         '\n';
}

// 0 or an error's number. Past stdio, whose lock the end of the process would wait for.
int writeToOutput(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
    if (count < 0 && errno != EINTR) return errno;
    if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

// A terminal or a pipe may never take it; nobody waits for the thread then, since what has been
// made for the session must go. Whoever has read it may end this before the thread says so, hence
// an interrupt is no failure.
ExitCode show(const Context& context, const Peers& peers) {
  const auto error = std::make_shared<std::optional<int>>();
  std::thread([text = context.settings.json ? environmentJSON(peers) : environmentText(peers),
               rendezvous = context.rendezvous, error] {
    const int result = writeToOutput(text);
    rendezvous->change([&] { *error = result; });
  }).detach();
  const auto result = context.rendezvous->wait({}, [&] { return error->has_value(); });
  if (result == Rendezvous::Result::interrupted) return ExitCode::ok;
  return **error == 0 ? ExitCode::ok : giveUpOutput(**error);
}

// Being ended by the user is how this normally ends.
ExitCode serve(const Context& context, Peers& peers) {
  const ExitCode shown = show(context, peers);
  if (shown != ExitCode::ok) return shown;
  const auto result = context.rendezvous->wait(std::nullopt, [&] { return peers.hasEnds(); });
  if (result == Rendezvous::Result::interrupted) return ExitCode::ok;
  peers.tellEnds();
  return ExitCode::noPeers;
}

// A terminal's interrupt reaches the command without our help, and what it does then is its own
// business. A terminal that is closed hangs up more than once, the kernel as well as the shell.
void passOn(const Context& context, const ChildProcess& command, bool& isEnding) {
  const int number = context.rendezvous->takeInterrupt();
  if (number == SIGINT) return;
  const bool isForce = number == SIGTERM && std::exchange(isEnding, true);
  command.signal(isForce ? SIGKILL : number);
}

// The command's own status.
ExitCode runIn(const Context& context, Peers& peers, const std::vector<std::string>& words) {
  ProgramStart start;
  start.words = words;
  start.variables = {busVariable(peers.address())};
  int error = 0;
  const auto command = ChildProcess::start(start, context.rendezvous, error);
  if (!command) {
    complain(tr("%@ cannot be started: %@", kvl::jsonText(words.front()), systemWords(error)));
    return static_cast<ExitCode>(error == ENOENT ? kNotFound : kCannotBeRun);
  }
  std::optional<int> status;
  for (bool isEnding = false;;) {
    const auto result = context.rendezvous->wait(std::nullopt, [&] {
      status = command->status();
      return status || peers.hasEnds();
    });
    if (status) return static_cast<ExitCode>(*status);
    if (result == Rendezvous::Result::interrupted) passOn(context, *command, isEnding);
    peers.tellEnds();
  }
}

ExitCode runDev(const Context& context, const DevOptions& options) {
  context.rendezvous->setTaking(true);
  Peers peers(context, options);
  const ExitCode started = peers.start();
  if (started != ExitCode::ok) return started;
  return options.command.empty() ? serve(context, peers) : runIn(context, peers, options.command);
}

Runner prepareDev(CLI::App& parser) {
  const auto options = std::make_shared<DevOptions>();
  parser
      .add_option("--state", options->state,
                  tr("Folder of the notary's authority, which is kept (default: one that goes "
                     "at the end)"))
      ->type_name("DIR");
  parser.add_option("--documents", options->documents, tr("Folder whose files the service has"))
      ->type_name("DIR");
  parser.add_option("COMMAND", options->command,
                    tr("Behind --: a program to run with them, and its arguments"));
  return [options](const Context& context) { return runDev(context, *options); };
}

}  // namespace

Command devCommand() {
  return {"dev",
          translatable("Run a notary and a service for development, until Ctrl-C or for a command"),
          prepareDev};
}

}  // namespace kvlocal
