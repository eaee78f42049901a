#include "tests/integration/LocalService.h"

#include "tests/support/FolderWait.h"
#include "tests/support/SilentNotary.h"

#include <local/platform/HostApplication.h>

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kvltest {
namespace {

// The programs lie beside each other, wherever they have been copied to.
std::string programBeside(const char* name) {
  return std::filesystem::read_symlink("/proc/self/exe").replace_filename(name);
}

std::string textOf(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

std::string quoted(const std::filesystem::path& path) {
  return "'" + path.string() + "'";
}

}  // namespace

World::World() {
  std::filesystem::create_directory(stateDirectory());
  std::filesystem::permissions(stateDirectory(), std::filesystem::perms::owner_all);
  // The kernel's keyring is shared with whoever else runs these tests at the same time.
  kvl::setHostIdentifier("org.example.IntegrationTest-" + std::to_string(getpid()));
  bus.startKeyring();
}

World::~World() {
  states.reset();
  if (session) {
    session->setNotary(std::make_shared<SilentNotary>());
    session->disconnectAfterError();
  }
  (void)KVLNotary::deleteKeys();
  kvl::setHostIdentifier("");
}

void World::offerNotary(const std::string& options) {
  // The bus takes a trailing blank for an argument of its own.
  const auto separator = options.empty() ? "" : " ";
  bus.addService(kNotaryName, programBeside("kvlocal-devnotary") + " --state " +
                                  quoted(stateDirectory()) + separator + options);
}

ChildProcess World::startNotary(const std::vector<std::string>& options) {
  std::vector<std::string> arguments{programBeside("kvlocal-devnotary"), "--state",
                                     stateDirectory().string()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  notaryLogFile = bus.directory() / ("notary-" + std::to_string(++notaryStarts) + ".log");
  ChildProcess notary(arguments, environmentWith({"DBUS_SESSION_BUS_ADDRESS=" + bus.address()}),
                      notaryLogFile);
  // Who asked the bus for the name could still be told of a notary that has just been killed.
  const auto isThere = [this] { return notaryLog().find("claimed ") != std::string::npos; };
  if (!waitForFolder(bus.directory(), notary, isThere)) {
    throw std::runtime_error("the notary did not start: " + notaryLog());
  }
  return notary;
}

void World::startService(const std::vector<std::string>& options) {
  std::filesystem::remove(stateDirectory() / "service.url");
  std::vector<std::string> arguments{programBeside("kvlocal-devservice"), "--state",
                                     stateDirectory().string()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  serviceLogFile = bus.directory() / ("service-" + std::to_string(++serviceStarts) + ".log");
  service = ChildProcess(arguments, environmentWith({}), serviceLogFile);
  const auto url = stateDirectory() / "service.url";
  if (!waitForFolder(stateDirectory(), service, [&] { return std::filesystem::exists(url); })) {
    throw std::runtime_error("the service did not start: " + serviceLog());
  }
}

std::string World::notaryLog() const {
  return textOf(notaryLogFile);
}

std::string World::serviceLog() const {
  return textOf(serviceLogFile);
}

std::string World::servicePort() const {
  std::ifstream file(stateDirectory() / "service.url");
  std::string text;
  file >> text;
  const auto url = kvl::URL::parse(text);
  if (!url || !url->port()) throw std::runtime_error("no port in " + text);
  return std::to_string(*url->port());
}

LocalService::~LocalService() {
  if (!HasFailure()) return;
  world_->isSpoiled = true;
  for (const auto& line : log.lines()) std::fprintf(stderr, "log: %s\n", line.c_str());
}

std::shared_ptr<World> EstablishedService::sharedWorld() {
  if (shared_ && shared_->world->isSpoiled) shared_.reset();
  if (!shared_) shared_ = std::make_unique<Shared>();
  return shared_->world;
}

void EstablishedService::SetUp() {
  if (session) return;
  offerNotary();
  startService();
  establish();
}

void LocalService::stopService() {
  world_->isSpoiled = true;
  world_->service.kill();
}

void LocalService::endService() {
  world_->isSpoiled = true;
  world_->service.signal(SIGTERM);
  world_->service.wait();
}

bool LocalService::waitForServiceLog(std::string_view part) const {
  return waitForFolder(bus.directory(), world_->service,
                       [&] { return serviceLog().find(part) != std::string::npos; });
}

void LocalService::createSession() {
  session = KVLSession::sessionWithNotary(nullptr, {});
  states = std::make_unique<StateWatcher>(*session);
}

void LocalService::createSessionWithoutNotary() {
  session = KVLSession::sessionWithNotary(std::make_shared<SilentNotary>(), {});
  states = std::make_unique<StateWatcher>(*session);
}

void LocalService::establish() {
  createSession();
  ASSERT_TRUE(states->waitFor(KVLSessionStateEstablished));
}

void LocalService::silenceNotary() {
  session->setNotary(std::make_shared<SilentNotary>());
}

Reply LocalService::send(const kvl::URLRequest& request) const {
  const auto reply = std::make_shared<Reply>();
  const auto done = std::make_shared<kvl::Semaphore>();
  session->request(request,
                   [reply, done](std::optional<kvl::Data> data, kvl::URLResponseRef response,
                                 std::optional<kvl::Error> error) {
                     *reply = {std::move(data), std::move(response), std::move(error)};
                     done->signal();
                   });
  if (!done->waitFor(kPatience)) {
    ADD_FAILURE() << "no answer to " << request.urlText();
    return {std::nullopt, nullptr, kvl::Error("no answer", 0)};
  }
  return *reply;
}

}  // namespace kvltest
