/// @file
/// A session as an object of Qt.
#pragma once

#include <local/KVLEncodingDownload.h>
#include <local/KVLEncodingForm.h>
#include <local/KVLSession.h>
#include <local/platform/DispatchQueue.h>
#include <local/platform/Exchange.h>
#include <local/platform/Export.h>
#include <local/platform/Value.h>
#include <local/qt/Events.h>
#include <local/qt/Fetched.h>

#include <QImage>
#include <QList>
#include <QObject>
#include <QSize>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

namespace kvl::qt {

class ImageSource;

/// A `KVLSession` with properties and signals, and fetches that need no thought of threads. Every
/// signal and every handler comes on the thread of this object, when its event loop runs, and none
/// after it has gone. Use it on that thread, with the application there.
///
/// **Handlers** are called once, whatever the outcome; without one, a failure is told by `failed`.
/// `context` is what the handler works on: once it has gone the handler is not called. It lives on
/// the same thread; null for none. The `queue` of the options does not count. Handlers and
/// receivers of signals may destroy this object.
class KVL_EXPORT SessionObject : public QObject {
  Q_OBJECT
  /// See `state`.
  Q_PROPERTY(State state READ state NOTIFY stateChanged)
  /// See `isEstablished`.
  Q_PROPERTY(bool established READ isEstablished NOTIFY stateChanged)
  /// See `stateText`.
  Q_PROPERTY(QString stateText READ stateText NOTIFY stateChanged)
  /// See `errorText`.
  Q_PROPERTY(QString errorText READ errorText NOTIFY stateChanged)
  /// See `progress`.
  Q_PROPERTY(double progress READ progress NOTIFY progressChanged)
  /// See `progressText`.
  Q_PROPERTY(QString progressText READ progressText NOTIFY progressChanged)
  /// See `progressDetail`.
  Q_PROPERTY(QString progressDetail READ progressDetail NOTIFY progressChanged)
  /// See `eventSource`.
  Q_PROPERTY(QString eventSource READ eventSource WRITE setEventSource NOTIFY eventSourceChanged)

 public:
  /// As `KVLSessionState`, for QML.
  enum State {
    Connecting,    ///< nothing has completed yet
    Established,   ///< requests are sent
    Disconnected,  ///< there is no identity
    Recovering,    ///< the next attempt follows soon
    Ended,         ///< for good
  };
  Q_ENUM(State)

  /// Receives the outcome of a fetch or of a submission.
  using Handler = std::function<void(const Fetched& fetched)>;
  /// Receives the outcome of a download.
  using DownloadHandler = std::function<void(const KVLEncoding::DownloadResult& result)>;
  /// Receives the picture, null where there is none, and how it was fetched.
  using ImageHandler = std::function<void(const QImage& image, const Fetched& fetched)>;

  /// Makes a session of its own with the shared notary, whose keys are made in the background, and
  /// ends it when it is destroyed.
  explicit SessionObject(QObject* parent = nullptr);
  /// Shows a session that others use as well, and leaves it as it is.
  ///
  /// @param session not null
  explicit SessionObject(std::shared_ptr<KVLSession> session, QObject* parent = nullptr);
  ~SessionObject() override;

  /// @name What was told last
  /// @{

  /// What the session's observers were told last.
  [[nodiscard]] State state() const;
  /// Whether requests are sent now.
  [[nodiscard]] bool isEstablished() const { return state() == Established; }
  /// "Established", for the user.
  [[nodiscard]] QString stateText() const;
  /// Why the session is not established; empty where there is no error (`KVLSession::lastError`).
  [[nodiscard]] QString errorText() const;
  /// The completed share, between 0 and 1.
  [[nodiscard]] double progress() const;
  /// What is going on, for the user (`ProgressState::localizedDescription`).
  [[nodiscard]] QString progressText() const;
  /// More about it (`ProgressState::localizedAdditionalDescription`).
  [[nodiscard]] QString progressDetail() const;
  /// @}

  /// The source of the event stream as it was set here.
  [[nodiscard]] QString eventSource() const;
  /// As `KVLSession::setEventStreamSource`.
  void setEventSource(const QString& source);

  /// @name Fetches and submissions, as in `KVLEncoding`
  /// @{

  /// As `KVLEncoding::jsonFromSession`.
  Exchange json(const QString& path, QObject* context, Handler handler,
                RequestOptions options = {});
  /// @param size in points; an empty one leaves the image its own. The picture has as many pixels
  /// as
  ///   the application's sharpest screen wants, which the GUI thread is asked for: its event loop
  ///   has to run, too, where this object lives on another thread.
  Exchange image(const QString& path, QSize size, QObject* context, ImageHandler handler,
                 RequestOptions options = {});
  /// As `KVLEncoding::submit`.
  Exchange submit(const Value& root, const QString& path, QObject* context, Handler handler,
                  RequestOptions options = {});
  /// An answer that is no document is no error here. The handler of a form for the browser is
  /// called only if that cannot be opened.
  Exchange submitForm(const Dictionary& form, const std::optional<Array>& inputs,
                      const QString& path, QObject* context, Handler handler,
                      KVLEncoding::FormOptions options = {});
  /// As `KVLEncoding::downloadFromSession`.
  /// @param file where the answer is put, as `QFile` names files
  Exchange download(const QString& path, const QString& file, QObject* context,
                    DownloadHandler handler, KVLEncoding::DownloadOptions options = {});
  /// @}

  /// The session that is shown; never null.
  [[nodiscard]] std::shared_ptr<KVLSession> session() const;
  /// The queue of this object's thread, see `queueOf`.
  [[nodiscard]] std::shared_ptr<DispatchQueue> queue() const;
  /// The images of the session, kept. Made at the first call.
  [[nodiscard]] std::shared_ptr<ImageSource> images() const;
  /// Ends the session, see `KVLSession::end`, also one that others use.
  Q_INVOKABLE void end();

 Q_SIGNALS:
  void stateChanged();        ///< state, state text or error text
  void progressChanged();     ///< share or texts
  void eventSourceChanged();  ///< by `setEventSource`
  /// All events that have come since the last time, in order. While the thread does not keep up the
  /// latest 10,000 wait, fewer if they are large.
  void eventsReceived(const QList<kvl::qt::Event>& events);
  /// The session is not established, or a fetch without a handler has failed.
  void failed(const QString& text);

 private:
  class KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
