// Requests with Qt's network access manager, on the main loop.
#include "bench/RequestProbe.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <cstdlib>

namespace {

using kvlbench::ClosedLoop;
using kvlbench::RequestSettings;

class Client {
 public:
  explicit Client(const RequestSettings& settings) : loop_(settings) {
    const auto bytes = [&](const char* name) {
      return QByteArray::fromStdString(kvlbench::readText(settings.file(name)));
    };
    auto tls = QSslConfiguration::defaultConfiguration();
    tls.setCaCertificates(QSslCertificate::fromData(bytes(kvlbench::kAuthorityFile)));
    tls.setLocalCertificate(QSslCertificate::fromData(bytes(kvlbench::kClientFile)).value(0));
    tls.setPrivateKey(QSslKey(bytes(kvlbench::kClientKeyFile), QSsl::Rsa));
    tls.setProtocol(QSsl::TlsV1_3OrLater);
    request_.setUrl(QUrl(QString::fromStdString(settings.baseURL() + settings.path())));
    request_.setSslConfiguration(tls);
    request_.setAttribute(QNetworkRequest::Http2AllowedAttribute, settings.httpVersion == 2);
    manager_.setProxy(QNetworkProxy::NoProxy);
  }

  void run() {
    start(loop_.first());
    QCoreApplication::exec();
    loop_.print();
  }

 private:
  void start(std::size_t count) {
    for (; count > 0; --count) {
      const double started = kvlbench::clockSeconds();
      QNetworkReply* reply = manager_.get(request_);
      QObject::connect(reply, &QNetworkReply::finished, &manager_,
                       [this, reply, started] { take(reply, started); });
    }
  }
  void take(QNetworkReply* reply, double started) {
    if (reply->error() != QNetworkReply::NoError)
      kvlbench::failProbe(reply->errorString().toStdString());
    const auto size = static_cast<std::size_t>(reply->readAll().size());
    const bool isHTTP2 = reply->attribute(QNetworkRequest::Http2WasUsedAttribute).toBool();
    reply->deleteLater();
    start(loop_.answered(started, size, isHTTP2 ? 2 : 1));
    if (loop_.isOver()) QCoreApplication::quit();
  }

  ClosedLoop loop_;
  QNetworkAccessManager manager_;
  QNetworkRequest request_;
};

}  // namespace

int main(int count, char** arguments) {
  const QCoreApplication application(count, arguments);
  Client(RequestSettings::parse(count, arguments)).run();
  std::_Exit(EXIT_SUCCESS);
}
