// One request of a page, from the engine's job to its answer.
#pragma once

#include "qt/web/HandedBodies.h"
#include "qt/web/PageFlow.h"

#include <local/KVLSession.h>
#include <local/platform/Observation.h>

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

class QWebEngineUrlRequestJob;

namespace kvl::qt {

inline constexpr char kPageScheme[] = "kvlocal";
inline constexpr char kPageHost[] = "service";

// What the requests of a relay share. GUI thread.
struct PageSurroundings {
  std::shared_ptr<KVLSession> session;
  std::function<void(const QString& path, const QString& why)> failed;
  bool showsPagesWithPolicies = false;
  int streams = 0;
  HandedForms forms;
  AnswerHeads heads;
};

// Whether the address is the service's own, as the session knows it now.
[[nodiscard]] bool isOfService(const KVLSession& session, const URL& url);

// Lives as long as the job; destroyed earlier, it fails the job. GUI thread.
class PageRequest final : public QObject {
  Q_OBJECT

 public:
  // @pre the job is for the service, and by somebody who may ask it
  PageRequest(PageSurroundings& surroundings, QWebEngineUrlRequestJob& job, QObject* parent);
  ~PageRequest() override;

  void start();

 protected:
  bool event(QEvent* event) override;

 private:
  [[nodiscard]] std::optional<URLRequest> request();
  [[nodiscard]] bool addBody(URLRequest& request);
  void addFields(URLRequest& request) const;
  void send();
  void goOn();
  void answer(const URLResponse& head);
  // Why this answer may not be shown; empty when it may.
  [[nodiscard]] QString refusal(const URLResponse& head) const;
  [[nodiscard]] bool isDocument() const;
  void fail(const QString& why);
  void tellEnd() const;
  void tell(const QString& why) const;
  [[nodiscard]] QByteArray field(const QByteArray& name) const;

  PageSurroundings& surroundings_;
  const QPointer<QWebEngineUrlRequestJob> job_;
  const QUrl address_;
  const std::shared_ptr<PageFlow> flow_;
  Observation establishment_;
  QPointer<PageBody> body_;
  bool isStream_ = false;
  bool isSent_ = false;
  bool isOver_ = false;  // failed or redirected: nothing of the answer counts any more
};

}  // namespace kvl::qt
