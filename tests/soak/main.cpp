// kvl_soak: a host with everything that a host does, while everything around it fails now and then.
// It succeeds when each request was answered once, each event came once, and nothing has grown.
#include "tests/soak/Load.h"
#include "tests/soak/Soak.h"

#include <local/platform/HostApplication.h>
#include <local/platform/Log.h>
#include <local/platform/Semaphore.h>

#include <glib.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <thread>

namespace {

using namespace kvltest;

// A second copy of the host: it makes a key pair in the place of the first one's, takes an
// identity, sends some requests and ends.
int visit(const std::string& identifier) {
  constexpr int kRequests = 3;
  kvl::setHostIdentifier(identifier);
  kvl::setLogSink([](std::string_view) {});
  const Sender sender{
      KVLSession::sessionWithNotary(nullptr, {}), std::make_shared<Ledger>(kVisitors), {}};
  const auto established = std::make_shared<kvl::Semaphore>();
  const auto states = sender.session->observeState([established](KVLSessionState state) {
    if (state == KVLSessionStateEstablished) established->signal();
  });
  if (!established->waitFor(kPatience)) return EXIT_FAILURE;
  for (int i = 0; i < kRequests; ++i) sendFetch(sender);
  const bool isComplete = sender.ledger->waitUntilNothingIsOpen(kPatience);
  return isComplete && sender.ledger->totals().answered == kRequests ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool succeeds(const std::function<bool()>& work) {
  try {
    return work();
  } catch (const std::exception& error) {
    std::printf("FAILED: %s\n", error.what());
    return false;
  }
}

// The main thread serves the main queue, as a host's does.
int serveDuring(const std::function<bool()>& work) {
  bool isDone = false;
  bool isWell = false;
  std::thread director([&] {
    isWell = succeeds(work);
    kvl::DispatchQueue::main()->async([&isDone] { isDone = true; });
  });
  while (!isDone) g_main_context_iteration(nullptr, TRUE);
  director.join();
  std::puts(isWell ? "all is well" : "something is wrong");
  return isWell ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int count, char** arguments) {
  SoakOptions options;
  std::int64_t seconds = options.duration.count();
  std::int64_t load = 0;
  std::string visitor;
  CLI::App app("Requests, events, forms, images and renewals while faults happen at random");
  app.add_option("--seconds", seconds, "How long")
      ->check(CLI::Range(1, 86'400))
      ->capture_default_str();
  app.add_option_function<std::int64_t>(
         "--minutes", [&seconds](std::int64_t minutes) { seconds = 60 * minutes; },
         "How long, in place of --seconds")
      ->check(CLI::Range(1, 1440));
  app.add_option("--seed", options.seed, "Decides requests and faults")->capture_default_str();
  app.add_option("--rate", options.rate, "Requests in a second")
      ->check(CLI::Range(0.1, 10'000.0))
      ->capture_default_str();
  app.add_option("--load", load,
                 "In place of a soak: so many requests at the same time, then ten times as many "
                 "in the queue")
      ->check(CLI::Range(1, 10'000));
  app.add_option("--visit", visitor, "Be a second host with that identifier")->group("");
  CLI11_PARSE(app, count, arguments);
  options.duration = std::chrono::seconds(seconds);
  if (!visitor.empty()) return visit(visitor);
  return serveDuring([&] { return load > 0 ? holdsLoad(load) : Soak(options).run(); });
}
