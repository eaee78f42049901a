// A Secret Service that misbehaves as it is told, where a real one cannot be made to. It serves one
// collection, keeps what it is given in this process, and writes down what it is asked.
#pragma once

#include <gio/gio.h>

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace kvltest {

class SecretProvider {
 public:
  // Methods go by their names: "CreateItem", "Unlock", "Delete" and so on.
  struct Manners {
    bool hasSessionCollection = true;
    bool encrypts = true;                           // secrets on their way
    std::set<std::string> prompts = {};             // wants to ask the user before it does these
    std::set<std::string> hangs = {};               // never answers these
    std::set<std::string> dies = {};                // leaves the bus when it is asked for these
    std::map<std::string, std::string> fails = {};  // answers these with an error of that name
    std::map<std::string, int> failsAt = {};  // answers this call of these with an error, from 1 on
    std::map<std::string, int> forgets = {};  // does not know these until they were called so often
    int lateCollection = 0;                   // has a session collection once it was asked so often
  };
  using Attributes = std::map<std::string, std::string>;

  // Owns the Secret Service's name on the bus from its construction to its destruction.
  SecretProvider(const std::string& address, Manners manners);
  ~SecretProvider();
  SecretProvider(const SecretProvider&) = delete;
  SecretProvider& operator=(const SecretProvider&) = delete;

  void behave(Manners manners);
  // An item whose secret nobody can read; its path.
  std::string addItem(Attributes attributes);

  // The methods that were called, in order.
  std::vector<std::string> calls() const;
  int count(const std::string& method) const;
  // The paths of items whose secret was asked for.
  std::set<std::string> readItems() const;
  // The attributes of the items that are there, by path.
  std::map<std::string, Attributes> items() const;

 private:
  struct Item {
    Attributes attributes;
    std::shared_ptr<GVariant> secret;
  };

  static GDBusMessage* filter(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                              gpointer self);
  void serve(GDBusMessage* call);
  GDBusMessage* answer(GDBusMessage* call, const std::string& method);
  GVariant* perform(const std::string& method, const std::string& path, GVariant* arguments);
  [[nodiscard]] bool hasCollection() const;
  GVariant* search(GVariant* arguments) const;
  GVariant* create(GVariant* arguments);
  GVariant* secret(const std::string& path, GVariant* arguments);

  GDBusConnection* connection_ = nullptr;
  mutable std::mutex mutex_;
  Manners manners_;
  std::vector<std::string> calls_;
  std::set<std::string> readItems_;
  std::map<std::string, Item> items_;
  int made_ = 0;
};

}  // namespace kvltest
