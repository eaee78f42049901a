// The binding's own texts in the user's language.
#include "qt/OwnTexts.h"
#include "qt/form/FormField.h"
#include "tests/support/QtApplication.h"
#include "tests/support/UserEnvironment.h"

#include <local/platform/Translation.h>
#include <local/qt/DocumentModel.h>

#include <gtest/gtest.h>

#include <QList>
#include <QPushButton>
#include <QString>
#include <QTranslator>
#include <string>
#include <thread>

namespace {

using kvl::qt::DocumentModel;
using kvl::qt::FileField;

class OwnTextsTest : public testing::Test {
 protected:
  static std::string chooserText() {
    const FileField field({{"name", "file"}}, nullptr);
    return field.findChild<QPushButton*>()->text().toStdString();
  }

  static std::string headerText() {
    DocumentModel model;
    return model.headerData(DocumentModel::KeyColumn, Qt::Horizontal, Qt::DisplayRole)
        .toString()
        .toStdString();
  }

  static std::string dataText(std::size_t size) {
    DocumentModel model;
    model.setDocument(kvl::Dictionary{{"a", kvl::Data(kvl::Bytes(size))}});
    return model.index(0, 1).data().toString().toStdString();
  }

 private:
  const kvltest::UserEnvironment user_;
};

TEST_F(OwnTextsTest, AreInTheUsersLanguage) {
  const kvltest::QtApplication application({.locale = "de_DE.UTF-8"});
  EXPECT_EQ(chooserText(), "Auswählen …");
  EXPECT_EQ(headerText(), "Schlüssel");
  EXPECT_EQ(dataText(1), "1 Byte");
  EXPECT_EQ(dataText(2), "2 Bytes");
}

TEST_F(OwnTextsTest, AreInTheLanguageOfTheNextApplicationToo) {
  {
    const kvltest::QtApplication first({.locale = "de_DE.UTF-8"});
  }
  const kvltest::QtApplication second({.locale = "ja_JP.UTF-8"});
  EXPECT_EQ(chooserText(), "選択…");
  EXPECT_EQ(dataText(1), "1 バイト");
}

TEST_F(OwnTextsTest, StayEnglishForEnglish) {
  const kvltest::QtApplication application({.locale = "en_US.UTF-8"});
  EXPECT_EQ(chooserText(), "Choose…");
  EXPECT_EQ(headerText(), "Key");
  EXPECT_EQ(dataText(1), "1 byte");
  EXPECT_EQ(dataText(2), "2 bytes");
}

class HostsTranslator final : public QTranslator {
 public:
  [[nodiscard]] bool isEmpty() const override { return false; }
  [[nodiscard]] QString translate(const char* /*context*/, const char* text, const char* /*more*/,
                                  int /*count*/) const override {
    return QByteArray(text) == "Choose…" ? QStringLiteral("Durchsuchen") : QString();
  }
};

TEST_F(OwnTextsTest, ATranslatorOfTheHostsGoesFirst) {
  const kvltest::QtApplication application({.locale = "de_DE.UTF-8"});
  HostsTranslator own;
  QCoreApplication::installTranslator(&own);
  EXPECT_EQ(chooserText(), "Durchsuchen");
  EXPECT_EQ(headerText(), "Schlüssel");
}

TEST_F(OwnTextsTest, TextsOfTheHostsAreLeftToIt) {
  const kvltest::QtApplication application({.locale = "de_DE.UTF-8"});
  EXPECT_EQ(QCoreApplication::translate("Host", "Key"), "Key");
}

// What Qt says meanwhile.
template <class Action>
std::string saidDuring(const Action& action) {
  static QString said;
  said.clear();
  const auto before = qInstallMessageHandler(
      [](QtMsgType, const QMessageLogContext&, const QString& text) { said += text; });
  action();
  qInstallMessageHandler(before);
  return said.toStdString();
}

// The library as the engine of QML loads it: late, and on another thread.
class LateOwnTextsTest : public OwnTextsTest {
 protected:
  static void unload() { qDeleteAll(translators()); }
  static void load() {
    EXPECT_EQ(saidDuring([] { std::thread(kvl::qt::translateOwnTexts).join(); }), "");
  }
  static QList<QTranslator*> translators() { return qApp->findChildren<QTranslator*>(); }
};

TEST_F(LateOwnTextsTest, AreTranslatedWhenTheApplicationsThreadGoesOn) {
  const kvltest::QtApplication application({.locale = "de_DE.UTF-8"});
  unload();
  load();
  EXPECT_EQ(chooserText(), "Choose…");
  QCoreApplication::processEvents();
  EXPECT_EQ(chooserText(), "Auswählen …");
  ASSERT_EQ(translators().size(), 1);
  EXPECT_EQ(translators().front()->thread(), application->thread());
}

TEST_F(LateOwnTextsTest, AreTranslatedByOneTranslator) {
  const kvltest::QtApplication application({.locale = "de_DE.UTF-8"});
  unload();
  load();
  kvl::qt::translateOwnTexts();
  load();
  QCoreApplication::processEvents();
  EXPECT_EQ(translators().size(), 1);
  EXPECT_EQ(chooserText(), "Auswählen …");
}

TEST_F(LateOwnTextsTest, MayComeAsTheApplicationEnds) {
  kvltest::QtApplication first({.locale = "de_DE.UTF-8"});
  unload();
  load();
  first.end();
  load();
  const kvltest::QtApplication second({.locale = "ja_JP.UTF-8"});
  QCoreApplication::processEvents();
  EXPECT_EQ(translators().size(), 1);
  EXPECT_EQ(chooserText(), "選択…");
}

}  // namespace
