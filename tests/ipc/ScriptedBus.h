// A session bus of the test's own making: the real one cannot be made to fail at a given step.
#pragma once

#include "tests/support/PrivateBus.h"

#include <gio/gio.h>

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kvltest {

// Answers every call as a bus would on which ":1.7" owns each name for this process's user, and
// `SendNotary` with an empty reply, except for the calls that are told to fail.
class ScriptedBus {
 public:
  ScriptedBus();
  ~ScriptedBus();
  ScriptedBus(const ScriptedBus&) = delete;
  ScriptedBus& operator=(const ScriptedBus&) = delete;

  [[nodiscard]] std::string address() const;

  // The next calls of `method` end with these D-Bus errors, in this order; an empty name stands for
  // success, and "close" for a connection that is closed instead.
  void fail(const std::string& method, std::deque<std::string> errors);

  // What was called, "METHOD to DESTINATION" each, without `Hello`.
  [[nodiscard]] std::vector<std::string> calls() const;

 private:
  void acceptAll();
  static GDBusMessage* received(GDBusConnection* client, GDBusMessage* message, gboolean incoming,
                                gpointer self);
  void answer(GDBusConnection* client, GDBusMessage* call);
  [[nodiscard]] std::string noteAndFailure(const std::string& method, const char* destination);

  const TemporaryDirectory directory_;
  const std::string path_;
  GMainContext* const context_ = g_main_context_new();
  GCancellable* const ended_ = g_cancellable_new();
  GSocket* const socket_;
  std::vector<GDBusConnection*> clients_;  // the thread's, until it has ended

  mutable std::mutex mutex_;
  // Protected by mutex_.
  std::map<std::string, std::deque<std::string>> failures_;
  std::vector<std::string> calls_;

  std::thread thread_;
};

}  // namespace kvltest
