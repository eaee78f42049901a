// The fields of a form, however many they are.
#pragma once

#include <QScrollArea>

class QFormLayout;

namespace qthost {

// Labels and fields in rows. It wants the room that all need, but no more than half of the screen,
// and scrolls where there is less.
class FieldArea : public QScrollArea {
  Q_OBJECT

 public:
  explicit FieldArea(QWidget* parent = nullptr);

  // Appends a row; the keyboard reaches it after the one above.
  void addRow(const QString& label, QWidget* field);

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override;

 private:
  [[nodiscard]] QSize bounded(QSize size) const;

  QFormLayout* const rows_;
  QWidget* last_;
};

}  // namespace qthost
