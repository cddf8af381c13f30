#pragma once

#include <QAbstractTableModel>
#include <QHash>
#include <QString>
#include <QTimer>
#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "library/history/HistoryEntry.h"

namespace tw {

// The history as the history window shows it: one row per colour, newest
// first, narrowed by a search text. Notations are worked out only for the rows
// that are drawn, and names are worked out on a thread of their own once the
// rows are in (kept per colour), so a history of 100,000 colours opens as fast
// as its rows can be read and a search by name never waits for them.
class HistoryModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { Colour, Name, Rgb, Cmyk, Hsb, Lab, Source, Time, Star, ColumnCount };
  enum Role { EntryIdRole = Qt::UserRole + 1, ColorRole, EntryRole };

  // The nearest named colour and its CIEDE2000 difference; an empty name when
  // there is no library.
  struct NamedColor {
    QString name;
    double deltaE = 0;
  };
  // Called from the naming thread as well as the main thread.
  using Namer = std::function<NamedColor(int red, int green, int blue)>;

  explicit HistoryModel(QObject* parent = nullptr);
  ~HistoryModel() override;

  // Replaces every row (newest first, as the store gives them).
  void setEntries(std::vector<history::Entry> entries);
  // A colour just committed: the new first row, when it matches the search.
  // One already shown (read with the rest before its report came) is skipped.
  void prepend(const history::Entry& entry);
  // Another library: names are worked out again.
  void setNamer(Namer namer);
  // Rows whose hex starts with the text's hex digits (with or without "#"),
  // or, for a text not starting with "#", whose own name or nearest name
  // contains it (case ignored). A nearest name counts once it has been worked
  // out; the search is run again when all are. Empty shows everything.
  void setSearch(const QString& text);
  const QString& search() const { return search_; }

  // The entry on a shown row.
  const history::Entry& entryAt(int row) const;
  int totalCount() const { return static_cast<int>(entries_.size()); }
  // The nearest name of a colour (through the cache).
  NamedColor nameOf(int red, int green, int blue) const;
  // Whether every colour's name has been worked out.
  bool namesReady() const;

  // Edits of the shown copies once the store has taken them.
  void setStarred(qint64 id, bool starred);
  void setAlias(qint64 id, const QString& alias);
  void removeIds(const std::vector<qint64>& ids);

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  int columnCount(const QModelIndex& parent = QModelIndex()) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation,
                      int role = Qt::DisplayRole) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  // Editing the name column renames the colour (aliasEdited); the store is the
  // window's business.
  bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
  QStringList mimeTypes() const override;
  QMimeData* mimeData(const QModelIndexList& indexes) const override;
  Qt::DropActions supportedDragActions() const override { return Qt::CopyAction; }

 Q_SIGNALS:
  void aliasEdited(qint64 id, const QString& alias);

 private:
  bool matches(const history::Entry& entry) const;
  void rebuildShown();
  int shownRowOf(qint64 id) const;
  // Names every colour not yet named, on the naming thread.
  void startNaming();
  void stopNaming();
  // Main thread: takes what the naming thread has found.
  void takeNames();

  std::vector<history::Entry> entries_;  // newest first
  std::vector<int> shown_;               // indices into entries_
  QString search_;
  // The search as hex digits, lower case; empty when it is not hex.
  QByteArray searchHex_;
  Namer namer_;
  mutable QHash<quint32, NamedColor> names_;  // main thread

  std::thread naming_;
  std::atomic<bool> stopNaming_{false};
  std::mutex namedMutex_;
  std::vector<std::pair<quint32, NamedColor>> named_;  // guarded by namedMutex_
  bool namingDone_ = true;                             // guarded by namedMutex_
  bool namesReady_ = true;                             // main thread
  QTimer* namesTimer_;
};

}  // namespace tw
