/// @file
/// Pages of the service in a web view (component `qt6web`).
#pragma once

#include <local/KVLSession.h>
#include <local/platform/Export.h>

#include <QObject>
#include <QString>
#include <QUrl>
#include <memory>

class QWebEngineProfile;

namespace kvl::qt {

/// Shows pages of the service in views of a profile. What the engine asks of addresses
/// `kvlocal://service/PATH` goes through the session; its key never leaves the framework, and
/// nothing listens on a port. Forms with files, images, `XMLHttpRequest`, `fetch` and `EventSource`
/// work as on any page, also while the session renews its identity.
///
/// Only the host's own `load` and pages of that one origin are answered. Every other address is
/// kept from the profile's pages, frames and scripts; the service's own `https` address leads to
/// the page. A document that the service means to be kept as a file (`Content-Disposition:
/// attachment`) is refused. What WebRTC and WebTransport connect to is
/// not kept from a page's scripts.
///
/// What a page has not, or not as elsewhere:
///
/// - cookies in scripts (those of HTTP work, in the session), and workers;
/// - ranges of a body, bodies of more than 16 MiB to send, and the progress of sending one;
/// - `sendBeacon`, and the coordinates of an image that submits a form;
/// - of `fetch`: answers before they are complete, `Response.url`, and the options about redirects;
/// - more than three event streams at a time;
/// - the status and the fields of an answer that a script first asks for after 256 newer ones: the
///   status is 0 then;
/// - forms, and the status and bodies of requests, where a policy in its `meta` element forbids
///   `connect-src` to the page's own origin; files to send, where it forbids it to `blob:`.
///
/// An answer of a redirect is fetched once more under the address where it ended, by GET.
///
/// A request that comes while the session is not established waits 10 s for it.
///
/// GUI thread. Destroyed before the profile and the application; requests under way then fail.
class KVL_EXPORT PageRelay : public QObject {
  Q_OBJECT

 public:
  /// Tells the engine about the addresses. Once, before the QApplication is made.
  static void registerScheme();

  /// Serves the pages of `profile`, one relay a profile. Take a profile that is off the record:
  /// what another one keeps of the service's pages stays on the disk. From then on the profile's
  /// pages open no programs for addresses of other schemes (`UnknownUrlSchemePolicy`).
  PageRelay(std::shared_ptr<KVLSession> session, QWebEngineProfile& profile,
            QObject* parent = nullptr);
  ~PageRelay() override;

  /// The address of a page of the service, for `QWebEnginePage::load`.
  [[nodiscard]] QUrl urlOf(const QString& path) const;

  /// A document's `Content-Security-Policy` cannot be handed to the engine. Documents that have one
  /// are refused unless `shows`; they are then shown without it.
  void setShowsPagesWithPolicies(bool shows);

 Q_SIGNALS:
  /// A link of a page leads away from the service. Nothing is loaded; the host may open a browser.
  /// The address is the page's: of any scheme, unchecked, also without a click. Check it before
  /// handing it on.
  void linkChosen(const QUrl& elsewhere);
  /// A request that a page made, or the host's, has failed or was refused.
  void requestFailed(const QString& path, const QString& why);

 private:
  class KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl::qt
