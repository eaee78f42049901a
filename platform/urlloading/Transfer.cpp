#include "platform/urlloading/Transfer.h"

#include "platform/core/ASCII.h"
#include "platform/core/CallbackBoundary.h"
#include "platform/core/Sentence.h"
#include "platform/urlloading/LoadingErrors.h"
#include "platform/urlloading/RequestCheck.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <new>
#include <string_view>
#include <utility>

namespace kvl::urlloading {
namespace {

constexpr std::uint16_t kHTTPPort = 80;
constexpr std::uint16_t kHTTPSPort = 443;
constexpr int kMostRepetitions = 3;  // of a request that servers decline
// The I/O thread waits for the answer, however long the request itself may be silent.
constexpr std::chrono::seconds kLongestChallenge{60};

const SSL* sslOf(CURL* easy) {
  const curl_tlssessioninfo* info = nullptr;
  if (curl_easy_getinfo(easy, CURLINFO_TLS_SSL_PTR, &info) != CURLE_OK || info == nullptr)
    return nullptr;
  return static_cast<const SSL*>(info->internals);
}

// What libcurl says of a line that is longer than it takes: 7.88 that it has no memory, later
// versions CURLE_TOO_LARGE, which 7.88 does not know.
bool isOfLongLine(CURLcode code) noexcept {
  constexpr int kTooLarge = 100;
  return code == CURLE_OUT_OF_MEMORY || static_cast<int>(code) == kTooLarge;
}

std::uint16_t portOf(const URL& url) {
  return url.port().value_or(isSecure(url) ? kHTTPSPort : kHTTPPort);
}

SteadyTime after(SteadyTime start, std::chrono::nanoseconds interval) {
  return interval >= SteadyTime::max() - start ? SteadyTime::max() : start + interval;
}

std::size_t maximumBody(ContentKind kind, const URLSessionConfiguration& configuration) {
  const std::size_t ofAnyKind = configuration.maximumBodySize;
  switch (kind) {
    case ContentKind::document:
      return std::min(configuration.maximumDocumentBytes, ofAnyKind);
    case ContentKind::image:
      return std::min(configuration.maximumImageBytes, ofAnyKind);
    case ContentKind::data:
    case ContentKind::eventStream:
      break;
  }
  return ofAnyKind;
}

SteadyTime endOf(const URLRequest& request, const URLSessionConfiguration& configuration,
                 SteadyTime began) {
  constexpr auto kNever = std::chrono::nanoseconds::max();
  const bool isStream = request.contentKind() == ContentKind::eventStream;
  return after(began, std::min(isStream ? kNever : configuration.timeoutIntervalForResource,
                               request.totalTimeout().value_or(kNever)));
}

// What it means that no second connection could be made for a request that has gone out.
CURLcode failureAfterSending(CURLcode code) {
  return code == CURLE_COULDNT_CONNECT || code == CURLE_COULDNT_RESOLVE_HOST ? CURLE_RECV_ERROR
                                                                             : code;
}

}  // namespace

Transfer::Transfer(std::shared_ptr<DataTaskObject> task, RequestRef request,
                   const URLSessionConfiguration& configuration, EasyHandles& handles,
                   std::shared_ptr<BodyMemory> memory)
    : task_(std::move(task)),
      configuration_(configuration),
      handles_(handles),
      memory_(std::move(memory)),
      original_(std::move(request)),
      request_(original_),
      trace_(task_->taskIdentifier(), began_),
      body_(task_->takeFraming()),
      maximumBody_(maximumBody(request_->contentKind(), configuration)),
      end_(endOf(*request_, configuration, began_)) {
  task_->noteDeliveryResumed();
}

Transfer::~Transfer() {
  closeFeed();
  if (connection_ && ownsHandshake_) connection_->detach();
  if (!easy_) return;
  isPlain_&& isAnswered_ ? handles_.giveBack(std::move(easy_)) : handles_.giveUp(std::move(easy_));
}

CURLcode Transfer::prepare() {
  if (easy_) handles_.giveUp(std::move(easy_));
  easy_ = handles_.take();
  if (!easy_) return CURLE_OUT_OF_MEMORY;
  deadlineSuspended_ = false;
  discarded_ = 0;
  headerBytes_ = 0;
  adopt(nullptr);
  head_ = {};
  errorText_.fill('\0');
  uploaded_ = 0;
  taken_ = 0;
  sockets_.clear();
  sent_ = false;
  resendingRefused_ = false;
  watch_ = {};
  prepareBody();
  noteActivity();
  OptionSetter options(easy_.get());
  applyRequest(options, *request_, fields_, configuration_.allowsHTTP2);
  // A connection on which the identity is withheld serves nothing else, and the other way round.
  if (!isAtOriginalHost()) applyOwnConnection(options);
  // Several idle connections may have ended, and one that others use is not given up at once.
  const bool isWary = endedConnections_ > 1;
  if (isWary) options.set(CURLOPT_FRESH_CONNECT, 1L);
  isPlain_ = urlloading::isPlain(*request_) && isAtOriginalHost() && !isWary;
  installCallbacks(options);
  return options.result();
}

// A handle that served before still has the functions. What they are called with goes with each
// transfer.
void Transfer::installCallbacks(OptionSetter& options) {
  void* before = nullptr;
  curl_easy_getinfo(easy_.get(), CURLINFO_PRIVATE, &before);
  if (before == nullptr) installFunctions(options);
  options.set(CURLOPT_PRIVATE, this);
  options.set(CURLOPT_ERRORBUFFER, errorText_.data());
  options.set(CURLOPT_HEADERDATA, this);
  options.set(CURLOPT_WRITEDATA, this);
  options.set(CURLOPT_SOCKOPTDATA, this);
  options.set(CURLOPT_PREREQDATA, this);
  options.set(CURLOPT_SSL_CTX_DATA, this);
  installBodyCallbacks(options);
}

void Transfer::installFunctions(OptionSetter& options) {
  options.set(CURLOPT_HEADERFUNCTION, &Transfer::onHeaderLine);
  options.set(CURLOPT_WRITEFUNCTION, &Transfer::onBody);
  options.set(CURLOPT_SOCKOPTFUNCTION, &Transfer::onSocket);
  options.set(CURLOPT_PREREQFUNCTION, &Transfer::onConnected);
  options.set(CURLOPT_SSL_CTX_FUNCTION, &Transfer::onTLSContext);
  options.set(CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
}

void Transfer::adopt(std::shared_ptr<TLSConnection> connection) {
  if (connection_ && ownsHandshake_) connection_->detach();
  connection_ = std::move(connection);
  ownsHandshake_ = false;
}

CURLcode Transfer::onTLSContext(CURL*, void* context, void* transfer) {
  auto* self = static_cast<Transfer*>(transfer);
  self->adopt(core::withoutExceptions(std::shared_ptr<TLSConnection>(), [&] {
    return TLSConnection::attach(static_cast<SSL_CTX*>(context), *self);
  }));
  self->ownsHandshake_ = true;
  return self->connection_ ? CURLE_OK : CURLE_OUT_OF_MEMORY;
}

// libcurl connects again after sending when the connection ended without an answer. Whether the
// server has taken the request is not known then, and a request is sent once.
int Transfer::onSocket(void* transfer, curl_socket_t socket, curlsocktype) {
  auto* self = static_cast<Transfer*>(transfer);
  self->resendingRefused_ = self->sent_;
  if (self->sent_) return CURL_SOCKOPT_ERROR;
  try {
    self->sockets_.push_back(socket);
  } catch (const std::bad_alloc&) {
    return CURL_SOCKOPT_ERROR;
  }
  return CURL_SOCKOPT_OK;
}

// Called before each request, on new, reused and shared connections alike.
int Transfer::onConnected(void* transfer, char*, char*, int remotePort, int localPort) {
  auto* self = static_cast<Transfer*>(transfer);
  self->noteActivity();
  if (self->sent_) {
    self->resendingRefused_ = true;
    return CURL_PREREQFUNC_ABORT;
  }
  const SSL* ssl = sslOf(self->easy());
  const bool isShared = ssl != nullptr && TLSConnection::multiplexes(*ssl);
  auto connection = ssl == nullptr ? nullptr : TLSConnection::of(ssl);
  if (connection != self->connection_) self->adopt(std::move(connection));
  if (self->connection_ && self->ownsHandshake_) {
    self->connection_->chooseSocket(self->sockets_, remotePort, localPort);
  } else if (self->connection_ && self->connection_->hasEnded(*ssl, isShared)) {
    self->foundEnded_ = true;
    self->closeConnectionWithExchange();
    return CURL_PREREQFUNC_ABORT;
  }
  if (isShared) self->watch_.begin(self->easy(), self->connection_);
  self->connectionKind_ = isShared;
  self->sent_ = true;
  self->trace_.noteSending(*self->request_, self->easy(), self->lastActivity_);
  return CURL_PREREQFUNC_OK;
}

std::size_t Transfer::onHeaderLine(char* text, std::size_t, std::size_t size, void* transfer) {
  auto* self = static_cast<Transfer*>(transfer);
  self->noteArrival(size);
  self->handles_.noteHeaderLine({text, size});
  if (self->connection_) self->connection_->markAnswered();
  const bool taken =
      core::withoutExceptions(false, [&] { return self->takeHeaderLine({text, size}); });
  if (!taken) self->closeConnectionWithExchange();
  return taken ? size : 0;
}

bool Transfer::takeHeaderLine(std::string_view line) {
  headerBytes_ += line.size();
  if (headerBytes_ > configuration_.maximumHeaderBytes) refusal_ = Refusal::headTooLarge;
  if (refusal_ == Refusal::none && head_.take(line)) finishHead();
  return refusal_ == Refusal::none || refusal_ == Refusal::tooManyRedirects;
}

void Transfer::closeConnectionWithExchange() {
  isPlain_ = false;
  if (easy_) curl_easy_setopt(easy_.get(), CURLOPT_FORBID_REUSE, 1L);
}

std::string Transfer::host() const {
  const URL& url = *request_->url();
  const auto name = url.host().value_or(std::string_view{});
  constexpr std::size_t kAround = sizeof "https://:65535";
  std::string text;
  text.reserve(kAround + name.size());
  text.append(*url.scheme()).append("://").append(name).append(":");
  text += std::to_string(portOf(url));
  std::ranges::transform(text, text.begin(), ascii::toLower);
  return text;
}

bool Transfer::isAtOriginalHost() const {
  return request_ == original_ || isSameHost(*request_->url(), *original_->url());
}

bool Transfer::mayMultiplex() const {
  return configuration_.allowsHTTP2 && isAtOriginalHost() && offersHTTP2(*request_);
}

SteadyTime Transfer::deadline() const {
  return std::min(idleDeadline(), end_);
}

SteadyTime Transfer::idleDeadline() const {
  // A source is not waited for any more once the server has refused the body.
  if (paused_ || (starved_ && !uploadGivenUp_) || deadlineSuspended_ ||
      task_->isDeliverySuspended()) {
    return SteadyTime::max();
  }
  return after(lastActivity_,
               request_->timeoutInterval().value_or(configuration_.timeoutIntervalForRequest));
}

std::chrono::steady_clock::duration Transfer::takeTimeInChallenges() {
  return std::exchange(timeInChallenges_, {});
}

bool Transfer::follow() {
  if (std::exchange(foundEnded_, false) && !task_->isCancelled()) {
    ++endedConnections_;
    return true;
  }
  if (mayRepeat()) {
    ++repetitions_;
    return true;
  }
  if (!redirect_ || refusal_ != Refusal::none || task_->isCancelled()) return false;
  request_ = std::exchange(redirect_, nullptr);
  ++redirects_;
  endedConnections_ = 0;
  repetitions_ = 0;
  return true;
}

bool Transfer::mayRepeat() const {
  return watch_.isDeclined() && repetitions_ < kMostRepetitions && headerBytes_ == 0 &&
         refusal_ == Refusal::none && !task_->isCancelled();
}

TaskOutcome Transfer::outcome(CURLcode code) {
  const std::string_view text = request_->urlText();
  if (task_->isCancelled())
    return {std::nullopt, response_, makeURLError(NSURLErrorCancelled, text)};
  if (isOfLongLine(code) && sent_ && !head_.isComplete()) refusal_ = Refusal::headTooLarge;
  if (refusal_ != Refusal::none) return {std::nullopt, response_, refusalError(text)};
  if (code != CURLE_OK) return {std::nullopt, response_, failure(code)};
  if (!response_) return {std::nullopt, nullptr, makeURLError(NSURLErrorBadServerResponse, text)};
  isAnswered_ = true;
  if (!task_->wantsBodyInOnePiece()) return {std::nullopt, response_, std::nullopt};
  return {memory_->lend(body_.takeAll()), response_, std::nullopt};
}

Error Transfer::refusalError(std::string_view urlText) const {
  switch (refusal_) {
    case Refusal::headTooLarge:
      return makeDescribedURLError(NSURLErrorDataLengthExceedsMaximum,
                                   translatable("The header fields of the server's response are "
                                                "larger than allowed."),
                                   urlText);
    case Refusal::bodyTooLarge:
      return makeURLError(NSURLErrorDataLengthExceedsMaximum, urlText);
    case Refusal::encoded:
      return makeDescribedURLError(NSURLErrorCannotDecodeContentData,
                                   translatable("The event stream has a content encoding."),
                                   urlText);
    case Refusal::unreadable:
      if (auto error = feed_->error()) return *error;
      return makeURLError(NSURLErrorRequestBodyStreamExhausted, urlText);
    case Refusal::tooManyRedirects:
    case Refusal::none:
      break;
  }
  return makeURLError(NSURLErrorHTTPTooManyRedirects, urlText);
}

TaskOutcome Transfer::timedOut() const {
  return {std::nullopt, response_, makeURLError(NSURLErrorTimedOut, request_->urlText())};
}

Error Transfer::failure(CURLcode code) const {
  FailureFacts facts{sent_ ? failureAfterSending(code) : code, std::nullopt, task_->isClosing()};
  if (connection_) facts.tls = connection_->facts();
  if (connection_ && connection_->input().isSpent())
    return makeURLError(NSURLErrorBadServerResponse, request_->urlText(),
                        "The connection brought too much that is nothing of an answer.");
  return makeURLError(classify(facts), request_->urlText(), debugText(code));
}

std::string Transfer::debugText(CURLcode code) const {
  if (resendingRefused_) return "The connection ended without an answer.";
  std::string text = errorText_.front() != '\0' ? errorText_.data() : curl_easy_strerror(code);
  if (connection_ && connection_->facts().alert)
    text += " (TLS alert " + std::to_string(*connection_->facts().alert) + ")";
  return text;
}

std::string Transfer::peerHost() const {
  return std::string(request_->url()->host().value_or(std::string_view{}));
}

ChallengeAnswer Transfer::askServerTrust(const std::shared_ptr<security::ServerTrust>& trust) {
  return ask(NSURLAuthenticationMethodServerTrust, trust);
}

ChallengeAnswer Transfer::askClientCertificate() {
  if (!isAtOriginalHost()) return {};
  return ask(NSURLAuthenticationMethodClientCertificate, nullptr);
}

ChallengeAnswer Transfer::ask(std::string_view method,
                              const std::shared_ptr<security::ServerTrust>& trust) {
  const auto start = std::chrono::steady_clock::now();
  const URL& url = *request_->url();
  ChallengeAnswer answer = task_->ask({peerHost(), portOf(url), std::string(method), trust}, trust,
                                      std::min(deadline(), start + kLongestChallenge));
  noteActivity();
  timeInChallenges_ += lastActivity_ - start;
  return answer;
}

}  // namespace kvl::urlloading
