// One task's exchange with the server, redirects included.
#pragma once

#include "platform/urlloading/BodyFeed.h"
#include "platform/urlloading/BodyFraming.h"
#include "platform/urlloading/DeclineWatch.h"
#include "platform/urlloading/EasyHandles.h"
#include "platform/urlloading/ResponseHead.h"
#include "platform/urlloading/TLSConnection.h"
#include "platform/urlloading/TransferOptions.h"
#include "platform/urlloading/TransferTrace.h"
#include "platform/urlloading/URLSessionObject.h"

#include <local/platform/URLSession.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvl::urlloading {

// Made by the engine for each task that starts, and driven by it: the engine calls the public part
// between libcurl's passes, libcurl the callbacks within them, and the TLS connection asks its
// questions through `ChallengeSource`. On the I/O thread only.
class Transfer final : private ChallengeSource {
 public:
  Transfer(std::shared_ptr<DataTaskObject> task, RequestRef request,
           const URLSessionConfiguration& configuration, EasyHandles& handles,
           std::shared_ptr<BodyMemory> memory);
  ~Transfer() override;
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  [[nodiscard]] CURL* easy() const noexcept { return easy_.get(); }
  [[nodiscard]] DataTaskObject& task() const noexcept { return *task_; }
  [[nodiscard]] std::uint64_t identifier() const noexcept { return task_->taskIdentifier(); }

  [[nodiscard]] RequestPriority priority() const noexcept { return request_->priority(); }
  // Scheme, host and port that the present request goes to.
  [[nodiscard]] std::string host() const;
  // Whether the connection that has just been made or taken multiplexes; absent when none has.
  [[nodiscard]] std::optional<bool> takeConnectionKind() {
    return std::exchange(connectionKind_, std::nullopt);
  }
  // Whether the present exchange offers HTTP/2.
  [[nodiscard]] bool mayMultiplex() const;
  // Nothing is sent until the request is prepared. The time-out runs: it counts for the host that
  // nobody could connect to yet.
  void waitForSlot() {
    adopt(nullptr);
    easy_.reset();
    starved_ = false;
    noteActivity();
  }
  // The host can be reached, so that waiting for other exchanges with it is no silence of its own.
  // A request that is prepared already is left alone.
  void suspendDeadlineUntilPrepared() { deadlineSuspended_ = easy_ == nullptr; }
  // Sets the easy handle up for the present request. @pre it is in no multi handle.
  [[nodiscard]] CURLcode prepare();
  // Takes what libcurl says when the exchange ended. True when the next one follows, after a
  // redirect or because nobody has looked at the request: the connection had ended before it went
  // out, or the server declined it. Prepare again.
  [[nodiscard]] bool follow();
  // For the trace: the transfer begins, `follow` had another exchange follow, and how all ended.
  void traceBegin() const { trace_.begin(*request_); }
  void traceRepetition() { trace_.noteRepetition(*request_, head_.status()); }
  void traceEnd(const TaskOutcome& outcome) const {
    trace_.end(*request_, easy(), outcome.response, outcome.error);
  }
  // What the exchange came to.
  [[nodiscard]] TaskOutcome outcome(CURLcode code);
  [[nodiscard]] TaskOutcome timedOut() const;

  // After each pass of reading.
  void endPass() {
    isHeard_ = false;
    if (connection_) connection_->input().endPass();
  }
  // Whether the pass has read anything from the connection, or taken what was read before.
  [[nodiscard]] bool isActive() const { return connection_ && connection_->input().isActive(); }
  // Hands the task what is due of the bytes that the pass begun at `now` has collected. `isMore`:
  // there is something to read at once.
  void flush(bool isMore, SteadyTime now);
  // Whether bytes have been read that may have to wait for others.
  [[nodiscard]] bool isCollecting() const noexcept { return body_.isCollecting(); }
  // Hands over all that is left.
  void flushRest();
  // Whether the chunk that is being collected grows at once.
  [[nodiscard]] bool isGrowing() const noexcept { return growing_; }
  // When `flush` has something to do although nothing arrives.
  [[nodiscard]] SteadyTime nextFlush() const;
  // Lets a held-back sender go on, and the time of its silence begin anew.
  void unpause();
  // The body that is being sent goes on.
  void feed();
  // Asks its source for nothing more.
  void closeFeed();
  // The connection that the exchange uses; null without TLS, or before there is one.
  [[nodiscard]] const std::shared_ptr<TLSConnection>& connection() const { return connection_; }
  // Whether the exchange can have its connection send what waits to be sent.
  [[nodiscard]] bool mayFlushConnection() const noexcept { return !paused_; }
  void flushConnection();
  // What is broken off over HTTP/2 leaves a reset behind that nobody would send. With the
  // connection, unless others use it, the end itself reaches the server.
  void closeConnectionWithExchange();

  // When the exchange has been silent for too long.
  [[nodiscard]] SteadyTime deadline() const;
  void postponeDeadline(std::chrono::steady_clock::duration pause) { lastActivity_ += pause; }
  // The time that was spent waiting for answers since the last call.
  [[nodiscard]] std::chrono::steady_clock::duration takeTimeInChallenges();

 private:
  static std::size_t onHeaderLine(char* text, std::size_t, std::size_t size, void* transfer);
  static std::size_t onBody(char* bytes, std::size_t, std::size_t size, void* transfer);
  static int onProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t uploaded);
  static std::size_t onRead(char* room, std::size_t, std::size_t size, void* transfer);
  static int onSeek(void* transfer, curl_off_t offset, int origin);
  static int onSocket(void* transfer, curl_socket_t socket, curlsocktype);
  static int onConnected(void* transfer, char*, char*, int remotePort, int localPort);
  static CURLcode onTLSContext(CURL*, void* context, void* transfer);

  std::string peerHost() const override;
  ChallengeAnswer askServerTrust(const std::shared_ptr<security::ServerTrust>& trust) override;
  ChallengeAnswer askClientCertificate() override;
  [[nodiscard]] ChallengeAnswer ask(std::string_view method,
                                    const std::shared_ptr<security::ServerTrust>& trust);

  void installCallbacks(OptionSetter& options);
  static void installFunctions(OptionSetter& options);
  void installBodyCallbacks(OptionSetter& options);
  // Has the source, if there is one, begin with the first byte.
  void prepareBody();
  void prepareFeed();
  void giveUpUploadIfRefused();
  [[nodiscard]] std::size_t takeUpload(char* room, std::size_t size);
  void applyPauses(bool holdsAnswer);
  // Whether the request may go out again because the server declined it.
  [[nodiscard]] bool mayRepeat() const;
  void adopt(std::shared_ptr<TLSConnection> connection);
  // False when the answer is broken off.
  [[nodiscard]] bool takeHeaderLine(std::string_view line);
  void finishHead();
  [[nodiscard]] bool hasNoBody() const;
  // How much of the answer's content is to come, if that is known.
  [[nodiscard]] std::optional<std::uint64_t> lengthToCome() const;
  [[nodiscard]] bool announcesMoreThan(std::size_t limit) const;
  [[nodiscard]] std::size_t discard(std::size_t size);
  [[nodiscard]] std::size_t takeBody(const char* bytes, std::size_t size);
  void handOver(std::size_t count);
  // Whether the request goes to the host that the identity is meant for.
  [[nodiscard]] bool isAtOriginalHost() const;
  [[nodiscard]] Error failure(CURLcode code) const;
  [[nodiscard]] std::string debugText(CURLcode code) const;
  [[nodiscard]] SteadyTime idleDeadline() const;
  void noteActivity() { lastActivity_ = std::chrono::steady_clock::now(); }
  // So many bytes of a head or body have come.
  void noteArrival(std::size_t bytes) {
    if (!std::exchange(isHeard_, true)) noteActivity();
    if (connection_) connection_->input().noteProgress(bytes);
  }

  // Tells the connection how much of the body has left it.
  void noteTaken();

  const std::shared_ptr<DataTaskObject> task_;
  const URLSessionConfiguration& configuration_;
  EasyHandles& handles_;
  const std::shared_ptr<BodyMemory> memory_;
  const SteadyTime began_ = std::chrono::steady_clock::now();
  const RequestRef original_;
  // The present one; another after a redirect.
  RequestRef request_;
  TransferTrace trace_;
  DeclineWatch watch_;
  EasyHandle easy_;
  // Whether nothing but a plain request was set on `easy_`, and whether that was answered.
  bool isPlain_ = false;
  bool isAnswered_ = false;
  HeaderList fields_;
  std::shared_ptr<TLSConnection> connection_;
  // Whether this transfer opened `connection_`.
  bool ownsHandshake_ = false;
  // The sockets of the attempts to connect, of which one became the connection's.
  std::vector<curl_socket_t> sockets_;
  // Whether the present request has gone out.
  bool sent_ = false;
  // Whether libcurl was about to send it again.
  bool resendingRefused_ = false;
  // Whether the connection turned out to have ended before anything was sent on it, and how often.
  bool foundEnded_ = false;
  int endedConnections_ = 0;
  int repetitions_ = 0;

  ResponseHead head_;
  URLResponseRef response_;
  PendingBody body_;
  bool growing_ = false;
  std::size_t discarded_ = 0;
  RequestRef redirect_;
  int redirects_ = 0;
  // Of the present exchange, trailers and interim answers included.
  std::size_t headerBytes_ = 0;

  // Why this transfer broke the exchange off.
  enum class Refusal { none, tooManyRedirects, headTooLarge, bodyTooLarge, encoded, unreadable };
  [[nodiscard]] Error refusalError(std::string_view urlText) const;
  Refusal refusal_ = Refusal::none;

  std::shared_ptr<BodyFeed> feed_;
  // Whether the upload waits for its source.
  bool starved_ = false;
  // Whether the server wanted no more of it.
  bool uploadGivenUp_ = false;
  bool paused_ = false;
  bool deadlineSuspended_ = false;
  std::optional<bool> connectionKind_;
  curl_off_t uploaded_ = 0;
  // Of the body that comes.
  curl_off_t taken_ = 0;
  const std::size_t maximumBody_;
  const SteadyTime end_;
  SteadyTime lastActivity_ = began_;
  // Whether something has come in this pass, which takes no time worth another look at the clock.
  bool isHeard_ = false;
  std::chrono::steady_clock::duration timeInChallenges_{};
  std::array<char, CURL_ERROR_SIZE> errorText_{};
};

}  // namespace kvl::urlloading
