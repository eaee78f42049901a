#include "qt/web/HandedBodies.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

namespace kvl::qt {
namespace {

constexpr qsizetype kMostBytes = qsizetype{16} << 20;
// Three encodings, of which one has the files.
constexpr qsizetype kMostFormBytes = 3 * (kMostBytes / 3 * 4 + 4);
// A submission comes at once after its body; what is older was never submitted.
constexpr std::chrono::seconds kFormLife{10};
constexpr std::size_t kMostForms = 4;
constexpr std::size_t kMostHeads = 256;

QString withoutFragment(const QString& address) {
  return QUrl(address).toString(QUrl::FullyEncoded | QUrl::RemoveFragment);
}

// A script that is given a field that HTTP forbids cannot make its answer of the others either.
bool isForPages(std::string_view name, std::string_view value) {
  if (!isSendableHeaderField(name, value)) return false;
  const auto lower =
      QByteArray::fromRawData(name.data(), static_cast<qsizetype>(name.size())).toLower();
  return lower != "set-cookie" && lower != "set-cookie2";
}

QString textOf(std::string_view text) {
  return QString::fromLatin1(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

QByteArray kindOf(const QByteArray& value) {
  return value.split(';').constFirst().trimmed().toLower();
}

std::optional<QByteArray> bodyOfField(const QByteArray& base64) {
  const auto result =
      QByteArray::fromBase64Encoding(base64, QByteArray::AbortOnBase64DecodingErrors);
  if (!result || result.decoded.size() > kMostBytes) return std::nullopt;
  return result.decoded;
}

bool HandedForms::add(const QByteArray& json) {
  if (json.size() > kMostFormBytes) return false;
  const auto object = QJsonDocument::fromJson(json).object();
  Form form{{}, {}, QDeadlineTimer(kFormLife)};
  for (const auto address : object[QLatin1String("addresses")].toArray())
    form.addresses.append(withoutFragment(address.toString()));
  for (const auto value : object[QLatin1String("bodies")].toArray()) {
    const auto body = value.toObject();
    const auto bytes = bodyOfField(body[QLatin1String("bytes")].toString().toLatin1());
    if (!bytes) continue;  // the form may be sent in another encoding
    form.bodies.append({body[QLatin1String("type")].toString().toLatin1(), *bytes});
  }
  if (form.addresses.isEmpty() || form.bodies.isEmpty()) return false;
  std::erase_if(forms_, [&](const Form& old) { return old.addresses == form.addresses; });
  forms_.push_front(std::move(form));
  if (forms_.size() > kMostForms) forms_.pop_back();
  return true;
}

std::optional<PageRequestBody> HandedForms::take(const QString& address, const QByteArray& type) {
  std::erase_if(forms_, [](const Form& form) { return form.end.hasExpired(); });
  const auto found =
      std::ranges::find_if(forms_, [wanted = withoutFragment(address)](const Form& form) {
        return form.addresses.contains(wanted);
      });
  if (found == forms_.end()) return std::nullopt;
  const Form form = std::move(*found);
  forms_.erase(found);
  for (const auto& body : form.bodies)
    if (kindOf(body.type) == kindOf(type)) return body;
  return std::nullopt;
}

void AnswerHeads::add(const QByteArray& number, const URLResponse& head) {
  const auto status = head.httpStatusCode.value_or(0);
  QJsonArray fields;
  for (const auto& [name, value] : head.headers)
    if (isForPages(name, value)) fields.append(QJsonArray{textOf(name), textOf(value)});
  const QJsonObject object{{QStringLiteral("status"), status},
                           {QStringLiteral("reason"), textOf(localizedStringForStatusCode(status))},
                           {QStringLiteral("fields"), fields}};
  heads_.push_back({number, QJsonDocument(object).toJson(QJsonDocument::Compact)});
  if (heads_.size() > kMostHeads) heads_.pop_front();
}

QByteArray AnswerHeads::jsonOf(const QByteArray& number) const {
  const auto found = std::ranges::find(heads_, number, &Head::number);
  return found == heads_.end() ? QByteArray() : found->json;
}

}  // namespace kvl::qt
