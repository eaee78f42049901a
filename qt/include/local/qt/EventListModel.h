/// @file
/// Events for item views.
#pragma once

#include <local/platform/Export.h>
#include <local/qt/Events.h>

#include <QAbstractListModel>
#include <QByteArray>
#include <QHash>
#include <QVariant>
#include <memory>

Q_MOC_INCLUDE("local/qt/SessionObject.h")

namespace kvl::qt {

class SessionObject;

/// The latest events, the oldest first: a list with three columns, which are its identifier, its
/// name and its data. Texts are shown as single lines of at most 1,000 UTF-16 code units.
class KVL_EXPORT EventListModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(kvl::qt::SessionObject* source READ source WRITE setSource NOTIFY sourceChanged)
  Q_PROPERTY(int most READ most WRITE setMost NOTIFY mostChanged)
  Q_PROPERTY(int count READ count NOTIFY countChanged)

 public:
  enum Column { IdentifierColumn, NameColumn, DataColumn };
  Q_ENUM(Column)

  /// Besides the usual ones of each column. In QML: "name", "data", "identifier" and "time".
  enum Role {
    NameRole = Qt::UserRole + 1,  ///< the text as it stands; so are the next two
    DataRole,
    IdentifierRole,
    TimeRole,  ///< when it came here, a `QDateTime`
  };
  Q_ENUM(Role)

  static constexpr int kUsualMost = 1000;

  explicit EventListModel(QObject* parent = nullptr);
  ~EventListModel() override;

  /// Whose events are added as they come; null for nobody's. It may go at any time.
  [[nodiscard]] SessionObject* source() const;
  void setSource(SessionObject* source);

  /// How many are kept; of more the oldest go. Less than 0 counts as 0.
  [[nodiscard]] int most() const;
  void setMost(int most);
  [[nodiscard]] int count() const { return rowCount(); }

  /// Adds events after those that are there.
  void append(const QList<kvl::qt::Event>& events);
  Q_INVOKABLE void clear();

  [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
  [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
  [[nodiscard]] QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation,
                                    int role = Qt::DisplayRole) const override;
  [[nodiscard]] QHash<int, QByteArray> roleNames() const override;

 Q_SIGNALS:
  void sourceChanged();
  void mostChanged();
  void countChanged();

 private:
  void removeOldest(int count);

  struct Content;
  const std::unique_ptr<Content> content_;
};

}  // namespace kvl::qt
