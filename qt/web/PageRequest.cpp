#include "qt/web/PageRequest.h"

#include <local/KVLEventStreamState.h>
#include <local/KVLNotarySignature.h>

#include <QMap>
#include <QWebEngineUrlRequestJob>
#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <string_view>
#include <utility>

namespace kvl::qt {
namespace {

constexpr std::chrono::seconds kLongestWait{10};
// Each keeps one of the few connections that a session has.
constexpr int kMostStreams = 3;
constexpr std::uint16_t kHTTPSPort = 443;

constexpr char kNumberField[] = "X-KVLocal-Number";
constexpr char kBodyField[] = "X-KVLocal-Body";

// Fields that belong to the connection or to the session, or say something about the page's
// address, which the service does not know; a body comes whole and is decoded below.
constexpr std::array kOwnFields = {"accept-encoding", "connection",
                                   "content-length",  "cookie",
                                   "expect",          "host",
                                   "if-range",        "keep-alive",
                                   "origin",          "range",
                                   "referer",         "te",
                                   "trailer",         "transfer-encoding",
                                   "upgrade",         "upgrade-insecure-requests"};
constexpr std::array kOwnPrefixes = {"x-kvlocal-", "proxy-", "sec-"};

bool isForService(const QByteArray& name) {
  const auto lower = name.toLower();
  return std::ranges::none_of(kOwnFields, [&](const char* own) { return lower == own; }) &&
         std::ranges::none_of(kOwnPrefixes, [&](const char* own) { return lower.startsWith(own); });
}

QString shown(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

bool isSameHost(std::string_view a, std::string_view b) {
  return shown(a).compare(shown(b), Qt::CaseInsensitive) == 0;
}

// Relative to the service, whatever it looks like: a path that begins with two slashes would name
// another host.
std::string pathOf(const QUrl& address) {
  const auto path = address.path(QUrl::FullyEncoded).toStdString();
  if (path.starts_with("//")) return "/." + path;
  return path.empty() ? "/" : path;
}

std::string referenceOf(const QUrl& address) {
  auto reference = pathOf(address);
  if (address.hasQuery()) reference += '?' + address.query(QUrl::FullyEncoded).toStdString();
  return reference;
}

// Without scheme and authority.
std::string placeOf(const URL& url) {
  std::string place(url.path().empty() ? "/" : url.path());
  if (const auto query = url.query()) place.append("?").append(*query);
  return place;
}

QUrl addressAt(const URL& url) {
  return QUrl(QLatin1String(kPageScheme) + QLatin1String("://") + QLatin1String(kPageHost) +
              shown(placeOf(url)));
}

std::string_view fieldOf(const URLResponse& head, std::string_view name) {
  return head.headers.find(name).value_or(std::string_view());
}

QByteArray bytesOf(std::string_view text) {
  return {text.data(), static_cast<qsizetype>(text.size())};
}

bool isEventStream(const URLResponse& head) {
  return kindOf(bytesOf(fieldOf(head, "Content-Type"))) == "text/event-stream";
}

// What is not known counts as a file too (RFC 6266, 4.2).
bool isFileToKeep(const URLResponse& head) {
  const auto kind = kindOf(bytesOf(fieldOf(head, "Content-Disposition")));
  return !kind.isEmpty() && kind != "inline";
}

bool mayHaveBody(const std::string& method) {
  return method != "GET" && method != "HEAD" && method != "DELETE" && method != "OPTIONS";
}

}  // namespace

bool isOfService(const KVLSession& session, const URL& url) {
  const auto signature = session.signature();
  const auto base = signature ? signature->baseURL() : std::nullopt;
  return base && url.scheme() == base->scheme() && base->host() && url.host() &&
         isSameHost(*url.host(), *base->host()) &&
         url.port().value_or(kHTTPSPort) == base->port().value_or(kHTTPSPort);
}

PageRequest::PageRequest(PageSurroundings& surroundings, QWebEngineUrlRequestJob& job,
                         QObject* parent)
    : QObject(parent),
      surroundings_(surroundings),
      job_(&job),
      address_(job.requestUrl()),
      flow_(std::make_shared<PageFlow>(*this)) {
  connect(&job, &QObject::destroyed, this, [this] {
    const QPointer<PageRequest> self(this);
    if (!isOver_) tellEnd();
    delete self.data();
  });
}

PageRequest::~PageRequest() {
  if (isStream_) --surroundings_.streams;
  flow_->letGo();
  if (!job_) return;
  job_->disconnect(this);
  if (body_)
    Q_EMIT body_->readyRead();
  else
    job_->fail(QWebEngineUrlRequestJob::RequestFailed);
}

void PageRequest::start() {
  if (surroundings_.session->state() == KVLSessionStateEstablished) return send();
  establishment_ = surroundings_.session->whenEstablished(
      kLongestWait, [flow = flow_](const std::optional<Error>& error) { flow->setReady(error); });
}

void PageRequest::send() {
  isSent_ = true;
  const auto made = request();
  if (!made) return fail(tr("the body was not handed over, or is larger than 16 MiB"));
  flow_->setTask(surroundings_.session->requestPieces(*made, flow_->receiver()));
}

std::optional<URLRequest> PageRequest::request() {
  URLRequest request(referenceOf(address_));
  request.setMethod(job_->requestMethod().toStdString());
  addFields(request);
  if (!addBody(request)) return std::nullopt;
  if (field("Accept").contains("text/event-stream")) {
    request.setContentKind(ContentKind::eventStream);
    request.setTimeoutInterval(std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::duration<double>(KVLEventStreamStateTimeoutInterval)));
  }
  return request;
}

void PageRequest::addFields(URLRequest& request) const {
  const auto fields = job_->requestHeaders();
  for (auto it = fields.begin(); it != fields.end(); ++it)
    if (isForService(it.key()))
      request.headers().set(it.key().toStdString(), it.value().toStdString());
}

bool PageRequest::addBody(URLRequest& request) {
  if (!mayHaveBody(request.method()) && field(kBodyField).isNull()) return true;
  if (!field(kNumberField).isNull()) {  // the script's; without a body when there is none
    if (field(kBodyField).isNull()) return true;
    const auto bytes = bodyOfField(field(kBodyField));
    if (bytes) request.setBody(Data::adoptingText(bytes->toStdString()));
    return bytes.has_value();
  }
  const auto body =
      surroundings_.forms.take(address_.toString(QUrl::FullyEncoded), field("Content-Type"));
  if (!body) return false;
  request.headers().set("Content-Type", body->type.toStdString());
  request.setBody(Data::adoptingText(body->bytes.toStdString()));
  return true;
}

bool PageRequest::event(QEvent* event) {
  if (!flow_->take(*event)) return QObject::event(event);
  goOn();
  return true;
}

// Whatever ends the job may destroy this object.
void PageRequest::goOn() {
  const auto news = flow_->news();
  if (!job_ || isOver_) return;
  if (news.isReady && !isSent_) return send();
  if (!body_) {
    if (news.head) return answer(*news.head);
    if (news.isOver)
      fail(news.error ? shown(news.error->localizedDescription()) : tr("there was no answer"));
    return;
  }
  Q_EMIT body_->readyRead();
}

void PageRequest::answer(const URLResponse& head) {
  if (const auto why = refusal(head); !why.isEmpty()) return fail(why);
  if (isDocument() &&
      placeOf(head.url) !=
          placeOf(URLRequest(referenceOf(address_)).url()->resolvedAgainst(head.url))) {
    isOver_ = true;
    flow_->letGo();
    return job_->redirect(addressAt(head.url));
  }
  if (const auto number = field(kNumberField); !number.isNull())
    surroundings_.heads.add(number, head);
  const auto type = fieldOf(head, "Content-Type");
  isStream_ = isEventStream(head);
  if (isStream_) ++surroundings_.streams;
  body_ = new PageBody(flow_);
  connect(job_, &QObject::destroyed, body_, &QObject::deleteLater);
  // Nothing is to be guessed from the bytes.
  job_->reply(type.empty() ? QByteArray("application/octet-stream") : bytesOf(type), body_);
}

QString PageRequest::refusal(const URLResponse& head) const {
  if (!isOfService(*surroundings_.session, head.url)) return tr("the answer came from elsewhere");
  if (isDocument() && isFileToKeep(head)) return tr("the answer is a file to keep, not a page");
  if (isDocument() && !surroundings_.showsPagesWithPolicies &&
      head.headers.find("Content-Security-Policy"))
    return tr("the page has a content policy, which cannot be kept");
  if (isEventStream(head) && surroundings_.streams >= kMostStreams)
    return tr("the pages have too many event streams");
  return {};
}

bool PageRequest::isDocument() const {
  return field("Accept").startsWith("text/html");
}

void PageRequest::fail(const QString& why) {
  isOver_ = true;
  flow_->letGo();
  const QPointer<PageRequest> self(this);
  if (job_) job_->fail(QWebEngineUrlRequestJob::RequestFailed);
  if (self) tell(why);
}

// The engine may have seen the end of a body before this thread is told of it.
void PageRequest::tellEnd() const {
  const auto news = flow_->news();
  if (news.isOver && news.error) tell(shown(news.error->localizedDescription()));
}

// Last in what calls it: the host may destroy the relay.
void PageRequest::tell(const QString& why) const {
  const auto failed = surroundings_.failed;
  failed(address_.path(), why);
}

QByteArray PageRequest::field(const QByteArray& name) const {
  const auto fields = job_->requestHeaders();
  for (auto it = fields.begin(); it != fields.end(); ++it)
    if (it.key().compare(name, Qt::CaseInsensitive) == 0)
      return it.value().isNull() ? QByteArray("") : it.value();
  return {};
}

}  // namespace kvl::qt
