#include "qt/form/FormField.h"
#include "tests/support/QtApplication.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace {

using kvl::qt::FileField;
using kvl::qt::FormField;

TEST(FormFieldTest, NumbersThatNoSpinBoxHoldsStayAsTheyAre) {
  const kvltest::QtApplication application;
  QWidget parent;
  const auto* field = FormField::make({{"name", "n"}, {"value", 12'345'678'901}}, &parent);
  QString fault;
  EXPECT_EQ((*field->input(fault))["value"].string(), "12345678901");
}

TEST(FormFieldTest, AFileThatIsNotChosenIsNotSent) {
  const kvltest::QtApplication application;
  QWidget parent;
  QString fault;
  EXPECT_FALSE(FormField::make({{"name", "n"}, {"type", "file"}}, &parent)->input(fault));
  EXPECT_TRUE(fault.isEmpty());
}

class FileFieldTest : public testing::Test {
 protected:
  // What is wrong with a file, without its path in front.
  QString faultOf(const QString& name) const {
    const QString path = folder_.filePath(name);
    QWidget parent;
    kvl::qt::FileField field({{"name", "n"}}, &parent);
    field.setPath(path);
    QString fault;
    const bool isSent = field.input(fault).has_value();
    EXPECT_EQ(isSent, fault.isEmpty());
    return fault.remove(path + ": ");
  }

  [[nodiscard]] QString path(const char* name) const { return folder_.filePath(name); }

 private:
  const kvltest::QtApplication application_;
  const QTemporaryDir folder_;
};

TEST_F(FileFieldTest, PipesAndFoldersAreNotRead) {
  ASSERT_EQ(mkfifo(path("pipe").toUtf8(), 0600), 0);
  EXPECT_EQ(faultOf("pipe"), "This is no file.");
  EXPECT_EQ(faultOf("."), "This is no file.");
  EXPECT_EQ(faultOf("none"), "No such file or directory");
}

TEST_F(FileFieldTest, AFileWhoseNameHasALineEndIsNotSent) {
  for (const char* name : {"two\nlines", "two\rlines", "two\r\nlines", "\nlines"}) {
    QFile file(path(name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_THAT(faultOf(name).toStdString(),
                testing::EndsWith("lines: There is a line end in the name of the file."));
  }
}

TEST_F(FileFieldTest, AFolderMayHaveALineEndInItsName) {
  ASSERT_TRUE(QDir(path("")).mkpath("two\nlines"));
  QFile file(path("two\nlines/name"));
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  EXPECT_EQ(faultOf("two\nlines/name"), "");
}

TEST_F(FileFieldTest, APathIsToldAsItIs) {
  EXPECT_EQ(faultOf("100%2 %1"), "No such file or directory");
}

TEST_F(FileFieldTest, AFileThatIsTooLargeIsNotSent) {
  QFile file(path("large"));
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
  ASSERT_TRUE(file.resize(kvl::qt::FileField::kMostBytes + 1));
  EXPECT_EQ(faultOf("large"), "The file is larger than 256 MiB.");
  ASSERT_TRUE(file.resize(5));
  EXPECT_EQ(faultOf("large"), "");
}

}  // namespace
