#include "platform/security/GLibPointers.h"
#include "tests/security/KeyStoreSupport.h"
#include "tests/support/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libsecret/secret.h>

#include <atomic>
#include <future>
#include <map>

namespace kvl::security {
namespace {

using kvltest::PrivateBus;
using kvltest::SessionBusVariable;
using kvltest::soon;
using kvltest::storedKey;
using std::chrono::milliseconds;
using testing::Contains;
using testing::Pair;

constexpr auto kSecretsName = "org.freedesktop.secrets";

// A client of the bus that has nothing to do with the store under test.
class BusClient {
 public:
  explicit BusClient(const std::string& address)
      : connection_(g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr)) {}
  ~BusClient() { g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr); }

  GVariant* call(const char* name, const char* path, const char* interface, const char* method,
                 GVariant* arguments) {
    return g_dbus_connection_call_sync(connection_.get(), name, path, interface, method, arguments,
                                       nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  }

  GVariant* property(const std::string& path, const char* name) {
    GVariant* reply = call(kSecretsName, path.c_str(), "org.freedesktop.DBus.Properties", "Get",
                           g_variant_new("(ss)", "org.freedesktop.Secret.Item", name));
    if (reply == nullptr) return nullptr;
    GVariant* value = nullptr;
    g_variant_get(reply, "(v)", &value);
    g_variant_unref(reply);
    return value;
  }

  // Owns `name` and never answers what is sent to it.
  void hangAs(const char* name) {
    g_dbus_connection_add_filter(connection_.get(), &BusClient::swallowCalls, this, nullptr);
    g_variant_unref(call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         "RequestName", g_variant_new("(su)", name, 0)));
  }

  // Blocks until somebody has called this client.
  void waitForCall() { called_.get_future().wait(); }

 private:
  static GDBusMessage* swallowCalls(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                    gpointer self) {
    const bool isCall = g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
    if (incoming == FALSE || !isCall) return message;
    g_object_unref(message);
    static_cast<BusClient*>(self)->noteCall();
    return nullptr;
  }

  void noteCall() {
    if (!wasCalled_.exchange(true)) called_.set_value();
  }

  std::atomic<bool> wasCalled_ = false;
  std::promise<void> called_;
  ObjectPtr<GDBusConnection> connection_;
};

// The paths of the items in the session collection.
std::vector<std::string> itemPaths(BusClient& client) {
  std::vector<std::string> paths;
  GVariant* reply =
      client.call(kSecretsName, "/org/freedesktop/secrets/collection/session",
                  "org.freedesktop.DBus.Properties", "Get",
                  g_variant_new("(ss)", "org.freedesktop.Secret.Collection", "Items"));
  if (reply == nullptr) return paths;
  GVariant* items = nullptr;
  g_variant_get(reply, "(v)", &items);
  GVariantIter iterator;
  const char* path = nullptr;
  g_variant_iter_init(&iterator, items);
  while (g_variant_iter_next(&iterator, "&o", &path)) paths.emplace_back(path);
  g_variant_unref(items);
  g_variant_unref(reply);
  return paths;
}

std::map<std::string, std::string> attributesOf(BusClient& client, const std::string& path) {
  std::map<std::string, std::string> attributes;
  GVariant* value = client.property(path, "Attributes");
  GVariantIter iterator;
  const char* name = nullptr;
  const char* text = nullptr;
  g_variant_iter_init(&iterator, value);
  while (g_variant_iter_next(&iterator, "{&s&s}", &name, &text)) attributes[name] = text;
  g_variant_unref(value);
  return attributes;
}

std::string labelOf(BusClient& client, const std::string& path) {
  GVariant* value = client.property(path, "Label");
  const std::string label = g_variant_get_string(value, nullptr);
  g_variant_unref(value);
  return label;
}

class SecretServiceTest : public testing::Test {
 protected:
  Status find(const std::string& tag, std::vector<StoredKey>& keys) {
    return store_->find(tag, keys, soon());
  }

  PrivateBus bus_;
  SessionBusVariable variable_{bus_.address()};
  const std::shared_ptr<KeyStore> store_ = makeSecretServiceKeyStore();
  const StoredKey key_ = storedKey("app.tag");
};

TEST_F(SecretServiceTest, EverythingButTheKeyIsThereForAKeyBrowserToShow) {
  bus_.startKeyring();
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  BusClient client(bus_.address());
  const auto paths = itemPaths(client);
  ASSERT_EQ(paths.size(), 1U);
  EXPECT_EQ(labelOf(client, paths[0]), "a label");
  const auto attributes = attributesOf(client, paths[0]);
  EXPECT_THAT(attributes, Contains(Pair("tag", "app.tag")));
  EXPECT_THAT(attributes, Contains(Pair("class", "private")));
  EXPECT_THAT(attributes, Contains(Pair("comment", "a comment")));
  EXPECT_THAT(attributes, Contains(Pair("description", "a description")));
  EXPECT_THAT(attributes, Contains(Pair("xdg:schema", "korvale.vandrel.local.key")));
}

TEST_F(SecretServiceTest, NothingIsWrittenToDisk) {
  bus_.startKeyring();
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(bus_.directory() / "home"))
    EXPECT_FALSE(entry.is_regular_file()) << entry.path();
}

TEST_F(SecretServiceTest, PassesOverItemsOfAnotherShape) {
  bus_.startKeyring();
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  const std::string command =
      "printf x | secret-tool store --label=x -c session xdg:schema "
      "korvale.vandrel.local.key tag app.tag class ";
  ASSERT_EQ(std::system((command + "other").c_str()), 0);
  std::vector<StoredKey> keys;
  ASSERT_EQ(find(key_.tag, keys), kSuccess);
  EXPECT_EQ(keys.size(), 1U);
}

TEST_F(SecretServiceTest, ItemsSayWhoMadeThemAndGoWhenTheirMakerHasEnded) {
  bus_.startKeyring();
  const std::string command =
      "printf x | secret-tool store --label=x -c session xdg:schema "
      "korvale.vandrel.local.key tag other class private maker ";
  ASSERT_EQ(std::system((command + kvltest::markOfEndedProcess()).c_str()), 0);
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  std::vector<StoredKey> none;
  ASSERT_EQ(find("nobody", none), kSuccess);  // answered once the store has tidied up
  BusClient client(bus_.address());
  const auto paths = itemPaths(client);
  ASSERT_EQ(paths.size(), 1U);
  EXPECT_THAT(attributesOf(client, paths[0]), Contains(Pair("maker", *ProcessMarks().own())));
}

TEST_F(SecretServiceTest, IsNotAvailableWhenNobodyOwnsTheName) {
  std::vector<StoredKey> keys;
  EXPECT_EQ(store_->add(key_, soon()), errSecNotAvailable);
  EXPECT_EQ(find(key_.tag, keys), errSecNotAvailable);
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon()), errSecNotAvailable);
}

TEST_F(SecretServiceTest, IsNotAvailableWhenItsProgramDoesNotStart) {
  bus_.addService(kSecretsName, "/bin/false");
  EXPECT_EQ(store_->add(key_, soon()), errSecNotAvailable);
}

TEST_F(SecretServiceTest, IsNotAvailableWithoutABus) {
  bus_.stop();
  EXPECT_EQ(store_->add(key_, soon()), errSecNotAvailable);
  const SessionBusVariable none("");
  EXPECT_EQ(store_->add(key_, soon()), errSecNotAvailable);
}

TEST_F(SecretServiceTest, AnOwnerThatNeverAnswersCostsNoMoreThanTheDeadline) {
  BusClient client(bus_.address());
  client.hangAs(kSecretsName);
  const Deadline deadline = soon(milliseconds(100));
  EXPECT_EQ(store_->add(key_, deadline), errSecNotAvailable);
  EXPECT_GE(std::chrono::steady_clock::now(), deadline);
  EXPECT_LT(std::chrono::steady_clock::now(), deadline + std::chrono::seconds(10));
}

TEST_F(SecretServiceTest, AnOwnerThatNeverAnswersIsReplacedWithinTheDeadline) {
  BusClient client(bus_.address());
  client.hangAs(kSecretsName);
  kvltest::LogCapture log;
  const auto chain = makeFallbackKeyStore({store_, makeMemoryKeyStore()});
  const Deadline deadline = soon(std::chrono::seconds(2));
  EXPECT_EQ(chain->add(key_, deadline), kSuccess);
  EXPECT_LT(std::chrono::steady_clock::now(), deadline);
  EXPECT_EQ(chain->remove(key_.tag, std::nullopt, soon(std::chrono::seconds(2))), kSuccess);
  EXPECT_THAT(log.lines(), testing::ElementsAre("key store: Secret Service does not answer",
                                                "key store: keys are kept in the process memory"));
}

TEST_F(SecretServiceTest, AFrozenServiceIsServedFromAgainOnceItThaws) {
  bus_.startKeyring();
  bus_.freezeKeyring();
  EXPECT_EQ(store_->remove(key_.tag, std::nullopt, soon(milliseconds(50))), errSecNotAvailable);
  bus_.thawKeyring();
  EXPECT_EQ(store_->add(key_, soon()), kSuccess);
}

// The call that was given up still waits for an answer then.
TEST_F(SecretServiceTest, AStoreMayGoOnAnotherThreadWhileACallOfItHangs) {
  bus_.startKeyring();
  bus_.freezeKeyring();
  auto store = makeSecretServiceKeyStore();
  {
    std::vector<StoredKey> keys;
    EXPECT_EQ(store->find(key_.tag, keys, soon(milliseconds(50))), errSecNotAvailable);
  }
  auto gone = std::async(std::launch::async, [held = std::move(store)]() mutable { held.reset(); });
  EXPECT_EQ(gone.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  bus_.thawKeyring();
}

TEST_F(SecretServiceTest, WhenItsProcessIsKilledTheNextStoreTakesOver) {
  bus_.startKeyring();
  kvltest::LogCapture log;
  const auto chain = makeFallbackKeyStore({store_, makeMemoryKeyStore()});
  ASSERT_EQ(chain->add(key_, soon()), kSuccess);
  bus_.killKeyring();
  EXPECT_EQ(chain->add(key_, soon()), kSuccess);
  std::vector<StoredKey> keys;
  EXPECT_EQ(chain->find(key_.tag, keys, soon()), kSuccess);
  EXPECT_EQ(keys.size(), 1U);
  EXPECT_EQ(chain->remove(key_.tag, std::nullopt, soon()), kSuccess);
}

TEST_F(SecretServiceTest, ANewServiceProcessIsUsedWithoutAWord) {
  bus_.startKeyring();
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  bus_.killKeyring();
  bus_.startKeyring();
  std::vector<StoredKey> keys;
  EXPECT_EQ(find(key_.tag, keys), kSuccess);
  EXPECT_TRUE(keys.empty());
  EXPECT_EQ(store_->add(key_, soon()), kSuccess);
}

TEST_F(SecretServiceTest, TheProcessSurvivesTheEndOfTheBus) {
  bus_.startKeyring();
  ASSERT_EQ(store_->add(key_, soon()), kSuccess);
  bus_.stop();
  EXPECT_EQ(store_->add(key_, soon()), errSecNotAvailable);
}

// Here a connection with exit-on-close would end the process.
TEST_F(SecretServiceTest, TheProcessSurvivesTheEndOfTheBusInMidCall) {
  BusClient client(bus_.address());
  client.hangAs(kSecretsName);
  auto status = std::async(std::launch::async, [&] { return store_->add(key_, soon()); });
  client.waitForCall();
  bus_.stop();
  EXPECT_EQ(status.get(), errSecNotAvailable);
}

}  // namespace
}  // namespace kvl::security
