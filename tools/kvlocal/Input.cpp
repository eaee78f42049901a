#include "tools/kvlocal/Input.h"

#include "tools/kvlocal/Describe.h"
#include "tools/kvlocal/Failure.h"
#include "tools/kvlocal/Words.h"

#include <local/KVLEncodingRoot.h>
#include <local/platform/Text.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <thread>
#include <utility>

namespace kvlocal {
namespace {

// Receives bytes; 0 or an error number.
using Taker = std::function<int(std::string_view)>;

struct Reading {
  bool isComplete = false;
  int error = 0;
  bool isTaken = true;  // else the error is the taker's
};

Reading readAll(int descriptor, const Taker& take) {
  std::array<char, 65536> block{};
  for (;;) {
    const ssize_t count = read(descriptor, block.data(), block.size());
    if (count == 0) return {true};
    if (count < 0 && errno != EINTR) return {true, errno};
    if (count < 0) continue;
    if (const int error = take({block.data(), static_cast<std::size_t>(count)}))
      return {true, error, false};
  }
}

Reading readFile(const std::string& path, const Taker& take) {
  if (path == kStandardInput) return readAll(STDIN_FILENO, take);
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return {true, errno};
  const Reading reading = readAll(descriptor, take);
  close(descriptor);
  return reading;
}

// `ok`, `interrupted`, or `usage` after it has said why the file cannot be read. What `take` uses
// may outlive an interrupted command.
ExitCode readInto(const Context& context, const std::string& path, const Taker& take) {
  const auto reading = std::make_shared<Reading>();
  // A terminal or a pipe may never end; nobody waits for the thread then.
  std::thread([path, take, rendezvous = context.rendezvous, reading] {
    const Reading done = readFile(path, take);
    rendezvous->change([&] { *reading = done; });
  }).detach();
  const auto result = context.rendezvous->wait({}, [&] { return reading->isComplete; });
  if (result == Rendezvous::Result::interrupted) return ExitCode::interrupted;
  if (reading->error == 0) return ExitCode::ok;
  const char* const fault = reading->isTaken
                                ? translatable("%@ cannot be read: %@")
                                : translatable("%@ cannot be kept in a temporary file: %@");
  return fail(context.settings.json, ExitCode::usage,
              tr(fault, kvl::jsonText(path), systemWords(reading->error)));
}

// From this size on, content is in a file until it is sent.
constexpr std::size_t kLarge = std::size_t{1} << 20;

// Keeps what has been read: in memory while it is little, then in a file that nobody else sees.
class Spool {
 public:
  Spool() = default;
  ~Spool() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;

  // 0 or an error number.
  int append(std::string_view bytes) {
    if (descriptor_ >= 0) return write(bytes);
    bytes_ += bytes;
    if (bytes_.size() < kLarge) return 0;
    if (const int error = open()) return error;
    return write(std::exchange(bytes_, {}));
  }

  // Once, after the last byte.
  std::shared_ptr<KVLInputFile> file() {
    if (descriptor_ >= 0) {
      lseek(descriptor_, 0, SEEK_SET);
      return KVLInputFile::newWithDescriptor(std::nullopt, std::nullopt, descriptor_);
    }
    return KVLInputFile::newWithFilename(std::nullopt, std::nullopt,
                                         kvl::Data::adoptingText(std::move(bytes_)));
  }

 private:
  int open() {
    const char* const folder = std::getenv("TMPDIR");
    std::string path = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp");
    path += "/kvlocal-XXXXXX";
    descriptor_ = mkostemp(path.data(), O_CLOEXEC);
    if (descriptor_ < 0) return errno;
    unlink(path.c_str());
    return 0;
  }

  [[nodiscard]] int write(std::string_view bytes) const {
    while (!bytes.empty()) {
      const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
      if (count < 0 && errno != EINTR) return errno;
      if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return 0;
  }

  std::string bytes_;
  int descriptor_ = -1;
};

// Pipes would block, and files of the kernel state no size.
bool isLarge(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_size >= static_cast<off_t>(kLarge);
}

// A large file that is there as a whole; null for any other.
std::shared_ptr<KVLInputFile> openFile(const std::string& path) {
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

}  // namespace

ExitCode readInput(const Context& context, const std::string& path,
                   std::shared_ptr<KVLInputFile>& file) {
  file = openFile(path);
  if (file) return ExitCode::ok;
  const auto spool = std::make_shared<Spool>();
  const ExitCode result =
      readInto(context, path, [spool](std::string_view bytes) { return spool->append(bytes); });
  if (result == ExitCode::ok) file = spool->file();
  return result;
}

ExitCode readDocument(const Context& context, const std::string& path,
                      std::optional<kvl::Value>& document) {
  const auto text = std::make_shared<std::string>();
  const ExitCode result = readInto(context, path, [text](std::string_view bytes) {
    *text += bytes;
    return 0;
  });
  if (result != ExitCode::ok) return result;
  std::optional<kvl::Error> error;
  document =
      KVLEncoding::rootFromResponse(nullptr, kvl::Data::adoptingText(std::move(*text)), &error);
  if (!error) return ExitCode::ok;
  return fail(context.settings.json, ExitCode::usage,
              tr("%@ is no JSON document: %@", kvl::jsonText(path), kvl::errorText(*error)),
              *error);
}

}  // namespace kvlocal
