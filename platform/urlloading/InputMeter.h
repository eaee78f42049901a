// How much a connection brings that is nothing of an answer, and how its input ends.
#pragma once

#include <openssl/ssl.h>

#include <algorithm>
#include <cstddef>

namespace kvl::urlloading {

// libcurl goes on reading as long as a connection has bytes and they make no part of an answer:
// empty frames, pings, settings, padding, chunk extensions. Until the socket is empty, no other
// exchange, command or time-out gets its turn. So after a slice of such bytes nothing is read
// before the next pass, and a connection that brings too many is broken off. On the I/O thread
// only; must outlive the connection.
class InputMeter {
 public:
  // What is read in one pass, beside what was of use.
  static constexpr std::size_t kSlice = std::size_t{256} << 10;
  // More than a server may still send of exchanges that have been cancelled: libcurl lets it have
  // 32 MiB under way.
  static constexpr std::size_t kLimit = std::size_t{64} << 20;
  // What is read in one pass where exchanges share the connection.
  static constexpr std::size_t kSharedSlice = std::size_t{1} << 20;
  // How much of that may lie with the exchanges before any more is read. What one of them reads of
  // another's body waits in that one's buffer for its turn, at the latest in the next pass, and
  // must have room there.
  static constexpr std::size_t kUntaken = std::size_t{48} << 10;
  // What a pass may read however much there is, so that an idle connection can be looked after.
  static constexpr std::size_t kFirstOfPass = SSL3_RT_MAX_ENCRYPTED_LENGTH;
  // What there is at most of one body. Each of the limits is overstepped by a record: `kUntaken` in
  // the pass before, and `kFirstOfPass` after that.
  static constexpr std::size_t kMostUntaken =
      kUntaken + kFirstOfPass + std::size_t{2} * SSL3_RT_MAX_ENCRYPTED_LENGTH;
  // How many bytes a useful one makes up for: events may be few and the frames around them many.
  static constexpr std::size_t kWorth = 1024;

  // Counts what this connection reads from now on.
  void watch(const SSL* ssl);
  // The socket that is shut down when the connection is broken off; -1: none.
  void setSocket(int socket) noexcept { socket_ = socket; }

  // From here on an end is a failure unless TLS's own notice comes before it, after which nothing
  // is read. libcurl takes a bare end for that of a body that has no length, even if the sender
  // died.
  void requireNotice() noexcept { needsNotice_ = true; }

  // Exchanges share the connection from here on.
  void share() noexcept { isShared_ = true; }
  [[nodiscard]] bool isShared() const noexcept { return isShared_; }

  // An exchange uses the connection in this pass. Whether that makes several that share it.
  [[nodiscard]] bool noteExchange() noexcept { return ++exchangesInPass_ > 1 && isShared_; }
  // What follows is of the next pass, in which `noteExchange` is to be called again. Each exchange
  // has had its turn, and taken what had been read for it before the pass.
  void endPass() noexcept;
  // An exchange has taken so many bytes of its body off the connection: as they came, not decoded.
  void noteTaken(std::size_t bytes) noexcept { untaken_ -= std::min(untaken_, bytes); }
  // So many bytes of a head or body have come.
  void noteProgress(std::size_t bytes) noexcept;
  // Whether the pass has read anything, or taken something of use that had been read before.
  [[nodiscard]] bool isActive() const noexcept { return isActive_; }
  // Whether somebody has looked in this pass, and found that the connection lives.
  [[nodiscard]] bool isKnownToLive() const noexcept { return isKnownToLive_; }
  void noteLife() noexcept { isKnownToLive_ = true; }
  // Whether anything has been written, or tried to be, since `forgetWriting`.
  [[nodiscard]] bool hasWritten() const noexcept { return hasWritten_; }
  void forgetWriting() noexcept { hasWritten_ = false; }
  void noteWriting() noexcept { hasWritten_ = true; }
  // Whether the connection has been broken off.
  [[nodiscard]] bool isSpent() const noexcept { return useless_ > kLimit; }

 private:
  static long onOperation(BIO* bio, int operation, const char* bytes, std::size_t size,
                          int argument, long longArgument, int result, std::size_t* processed);

  [[nodiscard]] bool mayRead() const noexcept {
    return uselessInPass_ <= kSlice && (!isShared_ || mayReadShared()) && !isSpent();
  }
  [[nodiscard]] bool mayReadShared() const noexcept {
    return inPass_ <= kFirstOfPass || (inPass_ <= kSharedSlice && untaken_ <= kUntaken);
  }
  void take(std::size_t bytes) noexcept;

  int socket_ = -1;
  bool needsNotice_ = false;
  bool isShared_ = false;
  int exchangesInPass_ = 0;
  std::size_t inPass_ = 0;
  // No exchange's buffer has more.
  std::size_t untaken_ = 0;
  std::size_t uselessInPass_ = 0;
  std::size_t useless_ = 0;
  bool isActive_ = false;
  bool isKnownToLive_ = false;
  bool hasWritten_ = false;
};

}  // namespace kvl::urlloading
