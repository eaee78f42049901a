#include "tools/kvlocal/Input.h"

#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/JSON.h"
#include "tools/kvlocal/Output.h"

#include <local/KVLEncodingRoot.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <thread>
#include <utility>

namespace kvlocal {
namespace {

struct Reading {
  bool isComplete = false;
  int error = 0;
  std::string bytes;
};

// Both return 0 or an error number.
int readAll(int descriptor, std::string& bytes) {
  std::array<char, 65536> block{};
  for (;;) {
    const ssize_t count = read(descriptor, block.data(), block.size());
    if (count == 0) return 0;
    if (count > 0) bytes.append(block.data(), static_cast<std::size_t>(count));
    if (count < 0 && errno != EINTR) return errno;
  }
}

int readFile(const std::string& path, std::string& bytes) {
  if (path == kStandardInput) return readAll(STDIN_FILENO, bytes);
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return errno;
  const int error = readAll(descriptor, bytes);
  close(descriptor);
  return error;
}

}  // namespace

ExitCode readInput(const std::string& path, const std::shared_ptr<Rendezvous>& rendezvous,
                   kvl::Data& data) {
  const auto reading = std::make_shared<Reading>();
  // A terminal or a pipe may never end; nobody waits for the thread then.
  std::thread([path, rendezvous, reading] {
    std::string bytes;
    const int error = readFile(path, bytes);
    rendezvous->change([&] { *reading = {true, error, std::move(bytes)}; });
  }).detach();
  const auto result = rendezvous->wait({}, [&] { return reading->isComplete; });
  if (result == Rendezvous::Result::interrupted) return ExitCode::interrupted;
  if (reading->error != 0) {
    complain(jsonText(path) + " cannot be read: " + std::strerror(reading->error));
    return ExitCode::usage;
  }
  data = kvl::Data::adoptingText(std::move(reading->bytes));
  return ExitCode::ok;
}

ExitCode readDocument(const std::string& path, const std::shared_ptr<Rendezvous>& rendezvous,
                      std::optional<kvl::Value>& document) {
  kvl::Data text;
  const ExitCode result = readInput(path, rendezvous, text);
  if (result != ExitCode::ok) return result;
  std::optional<kvl::Error> error;
  document = KVLEncoding::rootFromResponse(nullptr, text, &error);
  if (!error) return ExitCode::ok;
  complain(jsonText(path) + " is no JSON document: " + errorText(*error));
  return ExitCode::usage;
}

}  // namespace kvlocal
