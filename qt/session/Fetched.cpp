#include <local/qt/Conversions.h>
#include <local/qt/Fetched.h>

namespace kvl::qt {
namespace {

constexpr int kFirstRefusal = 300;

int statusOf(const URLResponseRef& response) {
  return response ? response->httpStatusCode.value_or(0) : 0;
}

}  // namespace

bool Fetched::isGood() const {
  return !error && statusOf(response) < kFirstRefusal;
}

QString Fetched::outcome() const {
  const int status = statusOf(response);
  if (error && status < kFirstRefusal) return qString(error->localizedDescription());
  if (status == 0) return {};
  const QString reason = qString(localizedStringForStatusCode(status));
  return QStringLiteral("%1 %2").arg(QString::number(status), reason);
}

QString Fetched::text() const {
  return qString(outcomeText(response, error));
}

}  // namespace kvl::qt
