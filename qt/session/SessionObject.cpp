#include "qt/session/EventInbox.h"

#include <local/KVLEncodingSession.h>
#include <local/qt/Conversions.h>
#include <local/qt/GuiThread.h>
#include <local/qt/ImageSource.h>
#include <local/qt/SessionObject.h>

#include <QFile>
#include <QGuiApplication>
#include <QPointer>
#include <QThread>
#include <utility>

namespace kvl::qt {
namespace {

KVLEncoding::RelativePath relative(const QString& path) {
  return KVLEncoding::RelativePath(utf8(path));
}

QString textOf(const std::optional<Error>& error) {
  return error ? qString(error->localizedDescription()) : QString();
}

const QGuiApplication* guiApplication() {
  return qobject_cast<const QGuiApplication*>(QCoreApplication::instance());
}

// GUI thread, which alone may look at screens.
double sharpestScale() {
  const auto* application = guiApplication();
  return application != nullptr ? application->devicePixelRatio() : 1;
}

// The GUI thread's queue for an object that lives on another one.
class ScreenQueue {
 public:
  ScreenQueue() { home_->moveToThread(QCoreApplication::instance()->thread()); }
  // By the queue, which knows when the application ends.
  ~ScreenQueue() {
    queue_->async([home = home_] { delete home; });
  }
  ScreenQueue(const ScreenQueue&) = delete;
  ScreenQueue& operator=(const ScreenQueue&) = delete;

  void async(DispatchQueue::Block block) const { queue_->async(std::move(block)); }

 private:
  QObject* const home_ = new QObject;
  const std::shared_ptr<DispatchQueue> queue_ = queueOf(*home_);
};

// For whom a handler is, if that matters.
class Context {
 public:
  explicit Context(QObject* object) : object_(object), matters_(object != nullptr) {}
  [[nodiscard]] bool hasGone() const { return matters_ && !object_; }

 private:
  QPointer<QObject> object_;
  bool matters_;
};

}  // namespace

class SessionObject::Implementation {
 public:
  Implementation(SessionObject& object, std::shared_ptr<KVLSession> session, bool isOwn);
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  // What a fetch calls, on this object's thread.
  [[nodiscard]] auto receiver(QObject* context, Handler handler);
  void finish(const Context& context, const Handler& handler, const Fetched& fetched);
  void draw(const std::shared_ptr<Image>& image, const Fetched& fetched, const Context& context,
            const ImageHandler& handler);
  // Calls `work` with the scale to draw with, on any thread.
  void withScale(std::function<void(double scale)> work);

  SessionObject& object;
  const std::shared_ptr<KVLSession> session;
  const std::shared_ptr<DispatchQueue> queue;
  State state;
  QString errorText;
  ProgressState progress;
  QString eventSource;
  std::shared_ptr<ImageSource> images;

 private:
  void enter(KVLSessionState entered, const QString& why);
  void show(const ProgressState& shown);
  void deliverEvents();

  const bool isOwn_;
  std::unique_ptr<ScreenQueue> screens_;  // made when it is needed
  const std::shared_ptr<EventInbox> inbox_ = std::make_shared<EventInbox>();
  // Silent once they are gone; what is on its way to the queue then goes with the object.
  Observation states_;
  Observation progresses_;
  Observation events_;
};

SessionObject::Implementation::Implementation(SessionObject& itsObject,
                                              std::shared_ptr<KVLSession> itsSession, bool isOwn)
    : object(itsObject),
      session(std::move(itsSession)),
      queue(queueOf(object)),
      state(static_cast<State>(session->state())),
      errorText(textOf(session->lastError())),
      progress(session->progress()->state()),
      eventSource(qString(session->eventSource())),
      isOwn_(isOwn) {
  states_ = session->observeState(
      [this, observed = std::weak_ptr(session), to = queue](KVLSessionState entered) {
        const auto present = observed.lock();
        const QString why = present ? textOf(present->lastError()) : QString();
        to->async([this, entered, why] { enter(entered, why); });
      });
  progresses_ = session->progress()->observe([this, to = queue](const ProgressState& shown) {
    to->async([this, shown] { show(shown); });
  });
  events_ = session->observeEvents([this, to = queue, inbox = inbox_](const auto& events) {
    if (inbox->add(events)) to->async([this] { deliverEvents(); });
  });
}

SessionObject::Implementation::~Implementation() {
  states_.end();
  progresses_.end();
  events_.end();
  if (isOwn_) session->end();
}

void SessionObject::Implementation::enter(KVLSessionState entered, const QString& why) {
  const QPointer<SessionObject> self(&object);
  const bool isOld = state == static_cast<State>(entered) && errorText == why;
  state = static_cast<State>(entered);
  errorText = why;
  if (!isOld) Q_EMIT self->stateChanged();
  if (self && !why.isEmpty() && entered != KVLSessionStateEnded) Q_EMIT self->failed(why);
}

void SessionObject::Implementation::show(const ProgressState& shown) {
  if (std::exchange(progress, shown) != shown) Q_EMIT object.progressChanged();
}

void SessionObject::Implementation::deliverEvents() {
  Q_EMIT object.eventsReceived(inbox_->take());
}

void SessionObject::Implementation::finish(const Context& context, const Handler& handler,
                                           const Fetched& fetched) {
  if (context.hasGone()) return;
  if (handler) return handler(fetched);
  if (!fetched.isGood()) Q_EMIT object.failed(fetched.outcome());
}

auto SessionObject::Implementation::receiver(QObject* context, Handler handler) {
  return
      [this, to = Context(context), handler = std::move(handler)](
          const std::optional<Value>& document, const URLResponseRef& response,
          const std::optional<Error>& error) { finish(to, handler, {document, response, error}); };
}

void SessionObject::Implementation::draw(const std::shared_ptr<Image>& image,
                                         const Fetched& fetched, const Context& context,
                                         const ImageHandler& handler) {
  if (!image || !handler)
    return finish(context,
                  handler ? Handler([&](const Fetched& all) { handler({}, all); }) : nullptr,
                  fetched);
  withScale([=, to = queue](double scale) {
    Image::rasterise(image, scale, [=, kept = image](const Bitmap& bitmap) {
      // Whoever asked for it is on the other thread.
      to->async([context, handler, fetched, drawn = qImage(bitmap, scale)] {
        if (!context.hasGone()) handler(drawn, fetched);
      });
    });
  });
}

void SessionObject::Implementation::withScale(std::function<void(double scale)> work) {
  const auto* application = guiApplication();
  if (application == nullptr || application->thread() == QThread::currentThread())
    return work(sharpestScale());
  if (!screens_) screens_ = std::make_unique<ScreenQueue>();
  screens_->async([work = std::move(work)] { work(sharpestScale()); });
}

SessionObject::SessionObject(QObject* parent)
    : QObject(parent),
      implementation_(std::make_unique<Implementation>(
          *this, KVLSession::sessionWithNotary(KVLNotary::sharedNotaryInBackground(), {}), true)) {}

SessionObject::SessionObject(std::shared_ptr<KVLSession> session, QObject* parent)
    : QObject(parent),
      implementation_(std::make_unique<Implementation>(*this, std::move(session), false)) {}

SessionObject::~SessionObject() = default;

SessionObject::State SessionObject::state() const {
  return implementation_->state;
}

QString SessionObject::stateText() const {
  switch (state()) {
    case Connecting:
      return tr("Connecting");
    case Established:
      return tr("Established");
    case Disconnected:
      return tr("Disconnected");
    case Recovering:
      return tr("Recovering");
    case Ended:
      return tr("Ended");
  }
  return {};
}

QString SessionObject::errorText() const {
  return implementation_->errorText;
}

double SessionObject::progress() const {
  return implementation_->progress.fractionCompleted();
}

QString SessionObject::progressText() const {
  return qString(implementation_->progress.localizedDescription);
}

QString SessionObject::progressDetail() const {
  return qString(implementation_->progress.localizedAdditionalDescription);
}

QString SessionObject::eventSource() const {
  return implementation_->eventSource;
}

void SessionObject::setEventSource(const QString& source) {
  if (implementation_->eventSource == source) return;
  implementation_->eventSource = source;
  implementation_->session->setEventStreamSource(utf8(source));
  Q_EMIT eventSourceChanged();
}

Exchange SessionObject::json(const QString& path, QObject* context, Handler handler,
                             RequestOptions options) {
  options.queue = queue();
  return KVLEncoding::jsonFromSession(
      *session(), relative(path), implementation_->receiver(context, std::move(handler)), options);
}

Exchange SessionObject::image(const QString& path, QSize size, QObject* context,
                              ImageHandler handler, RequestOptions options) {
  options.queue = queue();
  const Size points{static_cast<double>(size.width()), static_cast<double>(size.height())};
  return KVLEncoding::imageFromSession(
      *session(), relative(path), points,
      [self = implementation_.get(), to = Context(context), handler = std::move(handler)](
          const std::shared_ptr<Image>& image, const URLResponseRef& response,
          const std::optional<Error>& error) {
        self->draw(image, {std::nullopt, response, error}, to, handler);
      },
      options);
}

Exchange SessionObject::submit(const Value& root, const QString& path, QObject* context,
                               Handler handler, RequestOptions options) {
  options.queue = queue();
  return KVLEncoding::submit(root, relative(path), *session(),
                             implementation_->receiver(context, std::move(handler)), options);
}

Exchange SessionObject::submitForm(const Dictionary& form, const std::optional<Array>& inputs,
                                   const QString& path, QObject* context, Handler handler,
                                   KVLEncoding::FormOptions options) {
  options.queue = queue();
  return KVLEncoding::submitForm(
      form, inputs, relative(path), *session(),
      [receive = implementation_->receiver(context, std::move(handler))](
          const std::optional<Data>& body, const URLResponseRef& response,
          const std::optional<Error>& error) {
        receive(KVLEncoding::rootFromResponse(response, body), response, error);
      },
      options);
}

Exchange SessionObject::download(const QString& path, const QString& file, QObject* context,
                                 DownloadHandler handler, KVLEncoding::DownloadOptions options) {
  options.queue = queue();
  return KVLEncoding::downloadFromSession(
      *session(), relative(path), QFile::encodeName(file).toStdString(),
      [self = implementation_.get(), to = Context(context),
       handler = std::move(handler)](const KVLEncoding::DownloadResult& result) {
        const Handler all = handler ? [&](const Fetched&) { handler(result); } : Handler();
        self->finish(to, all, {std::nullopt, result.response, result.error});
      },
      options);
}

std::shared_ptr<KVLSession> SessionObject::session() const {
  return implementation_->session;
}

std::shared_ptr<DispatchQueue> SessionObject::queue() const {
  return implementation_->queue;
}

std::shared_ptr<ImageSource> SessionObject::images() const {
  if (!implementation_->images)
    implementation_->images = std::make_shared<ImageSource>(implementation_->session);
  return implementation_->images;
}

void SessionObject::end() {
  implementation_->session->end();
}

}  // namespace kvl::qt
