#include "tests/sandbox/Sandbox.h"

#include "tests/support/FolderWait.h"

#include <local/KVLEncodingRoot.h>

#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <type_traits>

namespace kvltest {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kTalkName = "--talk-name=";
// A display, which the programs here do not need.
constexpr std::string_view kDisplay[] = {"--share=ipc", "--socket=fallback-x11",
                                         "--socket=wayland"};
// Where the programs see the bus.
constexpr auto kBusInside = "/run/user/bus";

// What Flatpak forbids a program that asks for no more: it answers EPERM, and ENOSYS for calls
// whose arguments no filter can see.
constexpr const char* kForbidden[] = {
    "syslog",        "uselib",        "acct",       "quotactl", "add_key",
    "keyctl",        "request_key",   "move_pages", "mbind",    "get_mempolicy",
    "set_mempolicy", "migrate_pages", "unshare",    "setns",    "mount",
    "umount2",       "pivot_root",    "chroot",     "ptrace",   "perf_event_open"};
constexpr const char* kUnknown[] = {"clone3",   "open_tree", "move_mount", "fsopen",
                                    "fsconfig", "fsmount",   "fspick",     "mount_setattr"};

using Rules = std::unique_ptr<std::remove_pointer_t<scmp_filter_ctx>, decltype(&seccomp_release)>;

void writeFilter(const fs::path& path) {
  const Rules rules(seccomp_init(SCMP_ACT_ALLOW), seccomp_release);
  int error = 0;
  for (const char* name : kForbidden)
    error |=
        seccomp_rule_add(rules.get(), SCMP_ACT_ERRNO(EPERM), seccomp_syscall_resolve_name(name), 0);
  for (const char* name : kUnknown)
    error |= seccomp_rule_add(rules.get(), SCMP_ACT_ERRNO(ENOSYS),
                              seccomp_syscall_resolve_name(name), 0);
  const scmp_arg_cmp newUser{0, SCMP_CMP_MASKED_EQ, CLONE_NEWUSER, CLONE_NEWUSER};
  error |= seccomp_rule_add_array(rules.get(), SCMP_ACT_ERRNO(EPERM), SCMP_SYS(clone), 1, &newUser);
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  error |= seccomp_export_bpf(rules.get(), file);
  close(file);
  if (error != 0) throw std::runtime_error("the filter cannot be made");
}

kvl::Array finishArguments(const fs::path& manifest) {
  std::ifstream file(manifest, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const auto root = KVLEncoding::rootFromResponse(nullptr, kvl::Data::fromText(text));
  const auto dictionary = root ? root->dictionary() : std::nullopt;
  const auto arguments = dictionary ? (*dictionary)["finish-args"].array() : std::nullopt;
  if (!arguments) throw std::runtime_error(manifest.string() + " is no manifest");
  return *arguments;
}

std::string quoted(const std::string& text) {
  return "'" + text + "'";
}

}  // namespace

Permissions permissionsOf(const fs::path& manifest) {
  Permissions permissions;
  for (const kvl::Value& value : finishArguments(manifest)) {
    const std::string argument(value.string().value_or(""));
    if (argument.starts_with(kTalkName))
      permissions.names.insert(argument.substr(kTalkName.size()));
    else if (argument == "--share=network")
      permissions.network = true;
    else if (std::ranges::find(kDisplay, argument) == std::end(kDisplay))
      throw std::runtime_error("nothing is known of " + argument);
  }
  return permissions;
}

BusProxy::BusProxy(const std::string& busAddress, const Permissions& permissions,
                   const fs::path& folder)
    : socket_(folder / "bus") {
  Arguments command{"xdg-dbus-proxy", busAddress, socket_, "--filter"};
  for (const auto& name : permissions.names) command.push_back("--talk=" + name);
  process_ = ChildProcess(command, environmentWith({}), folder / "proxy.log");
  if (!waitForFolder(folder, process_, [this] { return fs::exists(socket_); }))
    throw std::runtime_error("the bus proxy does not start");
}

Arguments sandboxed(const BusProxy& bus, const Permissions& permissions, const Arguments& command,
                    const fs::path& folder) {
  const fs::path filter = folder / "filter.bpf";
  writeFilter(filter);
  std::string line = "exec bwrap --unshare-all --die-with-parent --new-session --seccomp 9";
  if (permissions.network) line += " --share-net";
  line += " --ro-bind /usr /usr --ro-bind /etc /etc --symlink usr/bin /bin --symlink usr/lib /lib";
  line += " --symlink usr/lib64 /lib64 --proc /proc --dev /dev";
  line += " --ro-bind " + quoted(KVL_BUILD_TREE) + " " + quoted(KVL_BUILD_TREE);
  line += " --ro-bind " + quoted(bus.socket()) + " " + kBusInside;
  line += std::string(" --setenv DBUS_SESSION_BUS_ADDRESS unix:path=") + kBusInside + " --";
  for (const auto& argument : command) line += " " + quoted(argument);
  return {"-c", line + " 9<" + quoted(filter)};
}

}  // namespace kvltest
