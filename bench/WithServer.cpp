// Runs a command with a server to make requests of, and waits for it: its arguments are continued
// with
// `--folder`, `--http` and `--port`, as the request probes take them, for HTTP/2 where `--http 2`
// is among them already. So they can be watched alone:
//
//   kvl_with_server strace -f -c kvl_request_probe --requests 1000
#include "bench/RequestWorld.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

int main(int count, char** arguments) {
  if (count < 2) {
    std::fprintf(stderr, "usage: %s COMMAND [ARGUMENT...]\n", arguments[0]);
    return EXIT_FAILURE;
  }
  kvlbench::RequestWorld world;
  const std::vector<std::string_view> given(arguments + 1, arguments + count);
  constexpr std::string_view kHTTP2[] = {"--http", "2"};
  const bool isHTTP2 = !std::ranges::search(given, kHTTP2).empty();
  std::vector<std::string> more = world.arguments(isHTTP2 ? 2 : 1);
  std::vector<char*> command(arguments + 1, arguments + count);
  for (auto& argument : more) command.push_back(argument.data());
  command.push_back(nullptr);
  pid_t child = 0;
  if (posix_spawnp(&child, command[0], nullptr, nullptr, command.data(), environ) != 0) {
    std::perror(command[0]);
    return EXIT_FAILURE;
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}
