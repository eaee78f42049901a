/// @file
/// A document for item views.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/Value.h>

#include <QAbstractItemModel>
#include <QByteArray>
#include <QHash>
#include <QVariant>
#include <memory>

namespace kvl::qt {

/// The keys and values of a document as a tree for `QTreeView` and for views of QML.
///
/// A dictionary has a row for each key, in the document's order, and an array one for each element,
/// called after its index. A document that is neither is one row without a key. Rows are made when
/// a view asks for them, `kFetched` at a time, so that a large document costs nothing until it is
/// unfolded.
///
/// Texts are single lines of at most 1,000 UTF-16 code units. An array or a dictionary says how
/// many parts it has, in the colour of placeholders.
class KVL_EXPORT DocumentModel : public QAbstractItemModel {
  Q_OBJECT

 public:
  /// The columns, in this order.
  enum Column {
    KeyColumn,    ///< what the value is called within its parent
    ValueColumn,  ///< the value, in one line
  };
  Q_ENUM(Column)

  /// Besides the usual ones of each column. In QML: "key", "value", "kind" and "text".
  enum Role {
    KeyRole = Qt::UserRole + 1,  ///< the key as it stands; of an element its index
    ValueRole,  ///< what `variant` makes of it; invalid for arrays and dictionaries
    KindRole,   ///< "null", "boolean", "integer", "real", "date", "string", "data",
                ///< "array", "dictionary" or "object"
    TextRole,   ///< what column 1 shows
  };
  Q_ENUM(Role)

  /// How many rows of one parent are made at a time.
  static constexpr int kFetched = 1000;

  /// Without a document, and without rows.
  explicit DocumentModel(QObject* parent = nullptr);
  ~DocumentModel() override;

  /// Shows `document` instead of the one before.
  void setDocument(const Value& document);
  /// Shows none.
  void clear();

  /// The value at `index`; null where there is none.
  [[nodiscard]] Value valueAt(const QModelIndex& index) const;

  /// The row is made when it is first asked for.
  [[nodiscard]] QModelIndex index(int row, int column,
                                  const QModelIndex& parent = {}) const override;
  /// The container's key cell; invalid for the outermost values.
  [[nodiscard]] QModelIndex parent(const QModelIndex& child) const override;
  using QObject::parent;
  /// The rows fetched so far.
  [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
  /// Two, everywhere.
  [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
  /// Whether the value is an array or a dictionary that is not empty.
  [[nodiscard]] bool hasChildren(const QModelIndex& parent = {}) const override;
  /// Whether there are parts beyond those fetched so far.
  [[nodiscard]] bool canFetchMore(const QModelIndex& parent) const override;
  /// Adds the next rows of `parent`.
  void fetchMore(const QModelIndex& parent) override;
  /// One line for `Qt::DisplayRole`, and the roles above.
  [[nodiscard]] QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  /// The names of the columns, in the user's language.
  [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation,
                                    int role = Qt::DisplayRole) const override;
  /// "key", "value", "kind" and "text", for QML.
  [[nodiscard]] QHash<int, QByteArray> roleNames() const override;

 private:
  class KVL_INTERNAL Rows;
  const std::unique_ptr<Rows> rows_;
};

}  // namespace kvl::qt
