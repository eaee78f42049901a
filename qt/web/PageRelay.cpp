#include "RelayScript.h"
#include "qt/web/PageRequest.h"

#include <local/platform/Log.h>
#include <local/qt/PageRelay.h>

#include <QBuffer>
#include <QMap>
#include <QPointer>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestInfo>
#include <QWebEngineUrlRequestInterceptor>
#include <QWebEngineUrlRequestJob>
#include <QWebEngineUrlScheme>
#include <QWebEngineUrlSchemeHandler>
#include <algorithm>
#include <array>
#include <utility>

namespace kvl::qt {
namespace {

constexpr char kElsewhereHost[] = "elsewhere";
constexpr char kFormField[] = "X-KVLocal-Form";
constexpr char kHeadField[] = "X-KVLocal-Head";

// What a page makes itself, without asking anybody.
constexpr std::array kOwnSchemes = {kPageScheme, "data", "blob", "about"};

bool isOfPages(const QUrl& url) {
  return url.scheme() == QLatin1String(kPageScheme) && url.host() == QLatin1String(kPageHost);
}

QWebEngineScript relayScript() {
  QWebEngineScript script;
  script.setName(QStringLiteral("kvlocal"));
  script.setSourceCode(QString::fromUtf8(kRelayScript));
  script.setInjectionPoint(QWebEngineScript::DocumentCreation);
  script.setWorldId(QWebEngineScript::MainWorld);
  script.setRunsOnSubFrames(true);
  return script;
}

void answer(QWebEngineUrlRequestJob& job, const QByteArray& text) {
  auto* content = new QBuffer;
  content->setData(text);
  QObject::connect(&job, &QObject::destroyed, content, &QObject::deleteLater);
  job.reply("application/json", content);
}

// Keeps everything that is not the service's from the pages.
class Interceptor final : public QWebEngineUrlRequestInterceptor {
 public:
  Interceptor(const KVLSession& session, std::function<void(const QUrl&)> linkChosen)
      : session_(session), linkChosen_(std::move(linkChosen)) {}

  void interceptRequest(QWebEngineUrlRequestInfo& info) override {
    const QUrl url = info.requestUrl();
    if (std::ranges::any_of(kOwnSchemes,
                            [&](const char* own) { return url.scheme() == QLatin1String(own); }))
      return;
    const auto parsed = URL::parse(url.toString(QUrl::FullyEncoded).toStdString());
    if (parsed && isOfService(session_, *parsed)) return info.redirect(inRelay(url, kPageHost));
    if (info.resourceType() != QWebEngineUrlRequestInfo::ResourceTypeMainFrame)
      return info.block(true);
    // A page that is left for nothing stays as it is.
    info.redirect(inRelay(QUrl(QStringLiteral("/")), kElsewhereHost));
    if (info.navigationType() != QWebEngineUrlRequestInfo::NavigationTypeLink) return;
    const auto chosen = linkChosen_;  // the host may destroy the relay
    chosen(url);
  }

 private:
  static QUrl inRelay(QUrl url, const char* host) {
    url.setScheme(QLatin1String(kPageScheme));
    url.setHost(QLatin1String(host));
    url.setPort(-1);
    url.setUserInfo({});
    return url;
  }

  const KVLSession& session_;
  const std::function<void(const QUrl&)> linkChosen_;
};

class Handler final : public QWebEngineUrlSchemeHandler {
 public:
  Handler(std::shared_ptr<KVLSession> session,
          std::function<void(const QString& path, const QString& why)> failed) {
    surroundings_.session = std::move(session);
    surroundings_.failed = std::move(failed);
  }
  ~Handler() override { qDeleteAll(findChildren<PageRequest*>()); }

  PageSurroundings& surroundings() { return surroundings_; }

  void requestStarted(QWebEngineUrlRequestJob* job) override {
    if (job->requestUrl().host() == QLatin1String(kElsewhereHost))
      return job->fail(QWebEngineUrlRequestJob::RequestAborted);
    if (!isOfPages(job->requestUrl()) ||
        !(job->initiator().isEmpty() || isOfPages(job->initiator()))) {
      const auto failed = surroundings_.failed;
      const auto path = job->requestUrl().path();
      job->fail(QWebEngineUrlRequestJob::RequestDenied);
      return failed(path, tr("only pages of the service may ask it"));
    }
    if (!answersScript(*job)) (new PageRequest(surroundings_, *job, this))->start();
  }

 private:
  // Questions that the script asks, which never reach the service.
  bool answersScript(QWebEngineUrlRequestJob& job) {
    const auto fields = job.requestHeaders();
    for (auto it = fields.begin(); it != fields.end(); ++it) {
      if (it.key().compare(kFormField, Qt::CaseInsensitive) == 0) {
        answer(job, surroundings_.forms.add(it.value()) ? "true" : "false");
        return true;
      }
      if (it.key().compare(kHeadField, Qt::CaseInsensitive) == 0) {
        answer(job, surroundings_.heads.jsonOf(it.value()));
        return true;
      }
    }
    return false;
  }

  PageSurroundings surroundings_;
};

}  // namespace

class PageRelay::Implementation {
 public:
  Implementation(PageRelay& relay, const std::shared_ptr<KVLSession>& session,
                 QWebEngineProfile& profile)
      : profile_(&profile),
        session_(session),
        interceptor_(*session, [&relay](const QUrl& url) { Q_EMIT relay.linkChosen(url); }),
        handler_(session, [&relay](const QString& path, const QString& why) {
          Q_EMIT relay.requestFailed(path, why);
        }) {
    profile.installUrlSchemeHandler(kPageScheme, &handler_);
    profile.setUrlRequestInterceptor(&interceptor_);
    profile.scripts()->insert(relayScript());
    // The engine would hand addresses of schemes that it does not know to the desktop.
    profile.settings()->setUnknownUrlSchemePolicy(QWebEngineSettings::DisallowUnknownUrlSchemes);
  }

  ~Implementation() {
    if (!profile_) return;
    profile_->removeUrlSchemeHandler(&handler_);
    profile_->setUrlRequestInterceptor(nullptr);
    for (const auto& script : profile_->scripts()->find(QStringLiteral("kvlocal")))
      profile_->scripts()->remove(script);
  }

  PageSurroundings& surroundings() { return handler_.surroundings(); }

 private:
  const QPointer<QWebEngineProfile> profile_;
  const std::shared_ptr<KVLSession> session_;
  Interceptor interceptor_;
  Handler handler_;
};

void PageRelay::registerScheme() {
  QWebEngineUrlScheme scheme(kPageScheme);
  scheme.setSyntax(QWebEngineUrlScheme::Syntax::Host);
  scheme.setFlags(QWebEngineUrlScheme::SecureScheme | QWebEngineUrlScheme::CorsEnabled);
  QWebEngineUrlScheme::registerScheme(scheme);
}

PageRelay::PageRelay(std::shared_ptr<KVLSession> session, QWebEngineProfile& profile,
                     QObject* parent)
    : QObject(parent), implementation_(std::make_unique<Implementation>(*this, session, profile)) {}

PageRelay::~PageRelay() = default;

QUrl PageRelay::urlOf(const QString& path) const {
  QUrl url(path);
  url.setScheme(QLatin1String(kPageScheme));
  url.setHost(QLatin1String(kPageHost));
  if (!url.path().startsWith(QLatin1Char('/'))) url.setPath(QLatin1Char('/') + url.path());
  return url;
}

void PageRelay::setShowsPagesWithPolicies(bool shows) {
  implementation_->surroundings().showsPagesWithPolicies = shows;
}

}  // namespace kvl::qt
