#include "qt/SegmentedControlAccessibility.h"

#include <local/qt/SegmentedControlView.h>

#include <QAccessible>
#include <QAccessibleWidget>
#include <QCoreApplication>
#include <QPointer>
#include <QString>

namespace kvl::qt {
namespace {

QAccessibleInterface* groupInterface(const QString&, QObject* object) {
  auto* view = qobject_cast<SegmentedControlView*>(object);
  return view != nullptr ? new QAccessibleWidget(view, QAccessible::Grouping) : nullptr;
}

}  // namespace

void installSegmentedControlAccessibility() {
  // Qt forgets its factories with the application.
  static QPointer<QObject> installed;
  if (installed) return;
  installed = new QObject(qApp);
  QAccessible::installFactory(&groupInterface);
}

}  // namespace kvl::qt
