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
  /// Whose events are added.
  Q_PROPERTY(kvl::qt::SessionObject* source READ source WRITE setSource NOTIFY sourceChanged)
  /// How many are kept.
  Q_PROPERTY(int most READ most WRITE setMost NOTIFY mostChanged)
  /// How many there are.
  Q_PROPERTY(int count READ count NOTIFY countChanged)

 public:
  /// The columns, in this order.
  enum Column {
    IdentifierColumn,  ///< `KVLEvent::identifier`
    NameColumn,        ///< `KVLEvent::event`
    DataColumn,        ///< `KVLEvent::data`, in one line
  };
  Q_ENUM(Column)

  /// Besides the usual ones of each column. In QML: "name", "data", "identifier" and "time".
  enum Role {
    NameRole = Qt::UserRole + 1,  ///< the name as it stands
    DataRole,                     ///< the data as they stand
    IdentifierRole,               ///< the identifier as it stands
    TimeRole,                     ///< when it came here, a `QDateTime`
  };
  Q_ENUM(Role)

  /// What `most` is until it is set.
  static constexpr int kUsualMost = 1000;

  /// A list without events and without a source.
  explicit EventListModel(QObject* parent = nullptr);
  ~EventListModel() override;

  /// Whose events are added as they come; null for nobody's. It may go at any time.
  [[nodiscard]] SessionObject* source() const;
  /// The events that are there stay.
  void setSource(SessionObject* source);

  /// How many are kept; of more the oldest go. Less than 0 counts as 0.
  [[nodiscard]] int most() const;
  /// Removes the oldest at once where there are more.
  void setMost(int most);
  /// How many events there are now.
  [[nodiscard]] int count() const { return rowCount(); }

  /// Adds events after those that are there.
  void append(const QList<kvl::qt::Event>& events);
  /// Removes all events.
  Q_INVOKABLE void clear();

  /// The events; none below an event.
  [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
  /// Three; none below an event.
  [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
  /// One line for `Qt::DisplayRole`, and the roles above with the whole texts.
  [[nodiscard]] QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  /// The names of the columns, in the user's language.
  [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation,
                                    int role = Qt::DisplayRole) const override;
  /// "name", "data", "identifier" and "time", for QML.
  [[nodiscard]] QHash<int, QByteArray> roleNames() const override;

 Q_SIGNALS:
  void sourceChanged();  ///< another source, or it has gone
  void mostChanged();    ///< another limit
  void countChanged();   ///< events came or went

 private:
  void removeOldest(int count);

  struct Content;
  const std::unique_ptr<Content> content_;
};

}  // namespace kvl::qt
