// Objects of QML beside the development notary and service.
#pragma once

#include "tests/tools/ServiceFixture.h"

#include <QByteArray>
#include <QObject>
#include <QQmlEngine>
#include <QTest>
#include <memory>
#include <optional>

namespace kvltest {

inline constexpr int kPatience = 60'000;  // ms

// Runs the event loop until the condition holds; false when it does not for a very long time.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition) {
  return QTest::qWaitFor(condition, kPatience);
}

class QmlTest : public ServiceTest {
 protected:
  // Starts the services and makes the engine. The application lasts as long as the program.
  void SetUp() override;
  // Destroys the root and the engine; keys go.
  void TearDown() override;

  // Makes the root: an object with `said`, a text that `text` fills.
  [[nodiscard]] bool make(const QByteArray& text);
  // Makes the root from a file.
  [[nodiscard]] bool load(const QString& file);
  // Whether the root says so in the end.
  [[nodiscard]] bool says(const QString& text);
  [[nodiscard]] QString said() const { return root->property("said").toString(); }

  std::unique_ptr<QQmlEngine> engine;
  std::unique_ptr<QObject> root;

 private:
  std::optional<SessionBusVariable> busVariable_;
};

}  // namespace kvltest
