#include "tools/kvlocal/Input.h"

#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/JSON.h"

#include <local/KVLEncodingRoot.h>

#include <fcntl.h>
#include <sys/stat.h>
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

// Pipes would block, and files of the kernel state no size.
bool isLarge(const struct stat& status) {
  constexpr off_t kLarge = off_t{1} << 20;
  return S_ISREG(status.st_mode) && status.st_size >= kLarge;
}

}  // namespace

ExitCode readInput(const Context& context, const std::string& path, kvl::Data& data) {
  const auto reading = std::make_shared<Reading>();
  // A terminal or a pipe may never end; nobody waits for the thread then.
  std::thread([path, rendezvous = context.rendezvous, reading] {
    std::string bytes;
    const int error = readFile(path, bytes);
    rendezvous->change([&] { *reading = {true, error, std::move(bytes)}; });
  }).detach();
  const auto result = context.rendezvous->wait({}, [&] { return reading->isComplete; });
  if (result == Rendezvous::Result::interrupted) return ExitCode::interrupted;
  if (reading->error != 0) {
    return fail(context.settings.json, ExitCode::usage,
                jsonText(path) + " cannot be read: " + std::strerror(reading->error));
  }
  data = kvl::Data::adoptingText(std::move(reading->bytes));
  return ExitCode::ok;
}

ExitCode readDocument(const Context& context, const std::string& path,
                      std::optional<kvl::Value>& document) {
  kvl::Data text;
  const ExitCode result = readInput(context, path, text);
  if (result != ExitCode::ok) return result;
  std::optional<kvl::Error> error;
  document = KVLEncoding::rootFromResponse(nullptr, text, &error);
  if (!error) return ExitCode::ok;
  return fail(context.settings.json, ExitCode::usage,
              jsonText(path) + " is no JSON document: " + errorText(*error), *error);
}

std::shared_ptr<KVLInputFile> openInput(const std::string& path) {
  struct stat status{};
  if (path == kStandardInput) {
    if (fstat(STDIN_FILENO, &status) != 0 || !isLarge(status)) return nullptr;
    return KVLInputFile::newWithDescriptor(std::nullopt, std::nullopt, STDIN_FILENO);
  }
  if (stat(path.c_str(), &status) != 0 || !isLarge(status)) return nullptr;
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return nullptr;
  auto file = KVLInputFile::newWithDescriptor(std::nullopt, std::nullopt, descriptor);
  close(descriptor);
  return file;
}

}  // namespace kvlocal
