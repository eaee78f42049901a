#include "platform/security/KernelKeyring.h"

#include <keyutils.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

namespace kvl::security::kernel {
namespace {

// The default leaves other sessions of the same user without access. Nobody else gets any.
constexpr key_perm_t kPermissions = KEY_POS_ALL | KEY_USR_ALL;

struct Free {
  void operator()(char* text) const noexcept { std::free(text); }
};

// Only its possessor may change a new key's permissions, and a process need not possess the user
// keyring; its thread's keyring it always does. So the key is made there and then moved.
int makeEntry(const char* type, const std::string& description,
              std::span<const std::uint8_t> payload, Serial parent, Serial& entry) {
  entry =
      add_key(type, description.c_str(), payload.data(), payload.size(), KEY_SPEC_THREAD_KEYRING);
  if (entry < 0) return errno;
  int error = 0;
  if (keyctl_setperm(entry, kPermissions) < 0 || keyctl_link(entry, parent) < 0) error = errno;
  keyctl_unlink(entry, KEY_SPEC_THREAD_KEYRING);
  return error;
}

}  // namespace

Serial userKeyring() noexcept {
  return KEY_SPEC_USER_KEYRING;
}

Serial threadKeyring() noexcept {
  return KEY_SPEC_THREAD_KEYRING;
}

int makeRing(const std::string& description, Serial parent, Serial& ring) {
  return makeEntry("keyring", description, {}, parent, ring);
}

int makeKey(const std::string& description, std::span<const std::uint8_t> payload, Serial parent) {
  Serial key = 0;
  return makeEntry("user", description, payload, parent, key);
}

int findRing(const std::string& description, Serial parent, Serial& ring) {
  const long found = keyctl_search(parent, "keyring", description.c_str(), 0);
  if (found < 0) return errno;
  ring = static_cast<Serial>(found);
  return 0;
}

int list(Serial ring, std::vector<Serial>& entries) {
  while (true) {
    const std::size_t room = entries.size() * sizeof(Serial);
    const long needed = keyctl_read(ring, reinterpret_cast<char*>(entries.data()), room);
    if (needed < 0) return errno;
    const bool complete = static_cast<std::size_t>(needed) <= room;
    entries.resize(static_cast<std::size_t>(needed) / sizeof(Serial));
    if (complete) return 0;
  }
}

std::optional<Description> describe(Serial key) {
  char* buffer = nullptr;
  if (keyctl_describe_alloc(key, &buffer) < 0) return std::nullopt;
  const std::unique_ptr<char, Free> owner(buffer);
  // "type;user;group;permissions;description"; only the description may hold a semicolon.
  std::string_view rest(buffer);
  std::vector<std::string_view> fields;
  for (int i = 0; i < 4; ++i) {
    const std::size_t end = rest.find(';');
    if (end == std::string_view::npos) return std::nullopt;
    fields.push_back(rest.substr(0, end));
    rest.remove_prefix(end + 1);
  }
  return Description{std::string(fields[0]), fields[1] == std::to_string(geteuid()),
                     std::string(rest)};
}

std::optional<WipedBytes> read(Serial key) {
  WipedBytes payload;
  while (true) {
    const long needed = keyctl_read(key, reinterpret_cast<char*>(payload.data()), payload.size());
    if (needed < 0) return std::nullopt;
    const bool complete = static_cast<std::size_t>(needed) <= payload.size();
    payload.resize(static_cast<std::size_t>(needed));
    if (complete) return payload;
  }
}

int link(Serial key, Serial parent) {
  return keyctl_link(key, parent) < 0 ? errno : 0;
}

int unlink(Serial key, Serial parent) {
  return keyctl_unlink(key, parent) < 0 ? errno : 0;
}

void revoke(Serial key) noexcept {
  keyctl_revoke(key);
}

int destroy(Serial key, Serial parent) {
  // In this order nobody finds a keyring that can no longer take keys.
  if (const int error = unlink(key, parent)) return error;
  revoke(key);
  return 0;
}

}  // namespace kvl::security::kernel
