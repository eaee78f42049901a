#include "examples/qthost/FormField.h"

#include <local/KVLInputFile.h>
#include <local/qt/Conversions.h>

#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QLayout>
#include <QLineEdit>
#include <QMimeDatabase>
#include <QPushButton>

namespace qthost {
namespace {

constexpr qint64 kMebibyte = 1 << 20;

// The contents; none and a fault when they cannot be had. Pipes and devices may never end.
std::optional<QByteArray> contentsOf(const QString& path, QString& fault) {
  const QFileInfo info(path);
  QFile file(path);
  if (info.exists() && !info.isFile()) {
    fault = FileField::tr("%1: This is no file.").arg(path);
  } else if (!file.open(QIODevice::ReadOnly)) {
    fault = FileField::tr("%1: %2").arg(path, file.errorString());
  } else {
    auto contents = file.read(FileField::kMostBytes + 1);
    if (contents.size() > FileField::kMostBytes)
      fault = FileField::tr("%1: The file is larger than %2 MiB.")
                  .arg(path)
                  .arg(FileField::kMostBytes / kMebibyte);
    else if (file.error() != QFileDevice::NoError)
      fault = FileField::tr("%1: %2").arg(path, file.errorString());
    else
      return contents;
  }
  return std::nullopt;
}

}  // namespace

FileField::FileField(const kvl::Dictionary& input, QWidget* parent)
    : FormField(input, parent), path_(new QLineEdit) {
  path_->setPlaceholderText(tr("No file"));
  setContent(path_);
  auto* chooser = new QPushButton(tr("Choose…"));
  chooser->setAutoDefault(false);
  chooser->setAccessibleName(tr("Choose a file: %1").arg(label()));
  connect(chooser, &QPushButton::clicked, this, &FileField::choose);
  layout()->addWidget(chooser);
}

void FileField::setPath(const QString& path) {
  path_->setText(path);
}

void FileField::choose() {
  auto* dialog = new QFileDialog(this, label());
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::ExistingFile);
  connect(dialog, &QFileDialog::fileSelected, this, &FileField::setPath);
  dialog->open();
}

std::optional<kvl::Dictionary> FileField::input(QString& fault) const {
  if (path_->text().isEmpty()) return std::nullopt;
  const auto contents = contentsOf(path_->text(), fault);
  if (!contents) return std::nullopt;
  const QFileInfo info(path_->text());
  const QString type = QMimeDatabase().mimeTypeForFile(info).name();
  return withValue(
      kvl::Value(KVLInputFile::newWithFilename(kvl::qt::utf8(info.fileName()), kvl::qt::utf8(type),
                                               kvl::Data::adoptingText(contents->toStdString()))));
}

}  // namespace qthost
