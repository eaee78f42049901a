#include "qt/OwnTexts.h"

#include <local/platform/Translation.h>
#include <local/qt/Conversions.h>

#include <QCoreApplication>
#include <QMetaObject>
#include <QTranslator>
#include <string_view>

namespace kvl::qt {
namespace {

class CatalogueTranslator final : public QTranslator {
 public:
  using QTranslator::QTranslator;

  [[nodiscard]] bool isEmpty() const override { return false; }
  [[nodiscard]] QString translate(const char* context, const char* english,
                                  const char* /*disambiguation*/, int /*count*/) const override {
    if (!std::string_view(context).starts_with("kvl::qt::")) return {};
    const std::string text = translated(english);
    return text == english ? QString() : qString(text);
  }
};

// On the application's thread.
void installOnce() {
  const auto name = QStringLiteral("kvlocal-qt6");
  QCoreApplication* application = QCoreApplication::instance();
  if (application->findChild<QTranslator*>(name, Qt::FindDirectChildrenOnly) != nullptr) return;
  auto* translator = new CatalogueTranslator(application);
  translator->setObjectName(name);
  QCoreApplication::installTranslator(translator);
}

}  // namespace

void translateOwnTexts() {
  QCoreApplication* application = QCoreApplication::instance();
  if (application == nullptr) return;
  // The engine of QML loads modules, and this library with them, on a thread of its own. A call
  // that waits when the application ends goes with it.
  QMetaObject::invokeMethod(application, installOnce, Qt::AutoConnection);
}

}  // namespace kvl::qt
