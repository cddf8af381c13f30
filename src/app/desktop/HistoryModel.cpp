#include "app/desktop/HistoryModel.h"

#include <QColor>
#include <QDateTime>
#include <QMimeData>
#include <QSet>
#include <algorithm>

#include "app/desktop/ColorTransfer.h"
#include "color/ColorNotations.h"

namespace tw {

namespace {

quint32 packed(const history::Entry& entry) {
  return (quint32(entry.red) << 16) | (quint32(entry.green) << 8) | quint32(entry.blue);
}

// Lower-case hex digits of a search, without the "#"; empty if it is not one.
QByteArray hexDigits(const QString& text) {
  QString digits = text;
  if (digits.startsWith(QLatin1Char('#'))) digits.remove(0, 1);
  if (digits.isEmpty() || digits.size() > 6) return {};
  for (const QChar c : digits)
    if (!c.isDigit() && !(c.toLower() >= QLatin1Char('a') && c.toLower() <= QLatin1Char('f')))
      return {};
  return digits.toLower().toLatin1();
}

bool hexStartsWith(quint32 rgb, const QByteArray& digits) {
  static const char kDigits[] = "0123456789abcdef";
  for (int i = 0; i < digits.size(); ++i) {
    const quint32 nibble = (rgb >> (20 - 4 * i)) & 0xFU;
    if (kDigits[nibble] != digits[i]) return false;
  }
  return true;
}

}  // namespace

HistoryModel::HistoryModel(QObject* parent) : QAbstractTableModel(parent) {
  namesTimer_ = new QTimer(this);
  namesTimer_->setInterval(50);
  connect(namesTimer_, &QTimer::timeout, this, &HistoryModel::takeNames);
}

HistoryModel::~HistoryModel() { stopNaming(); }

void HistoryModel::setEntries(std::vector<history::Entry> entries) {
  beginResetModel();
  entries_ = std::move(entries);
  rebuildShown();
  endResetModel();
  startNaming();
}

void HistoryModel::stopNaming() {
  if (!naming_.joinable()) return;
  stopNaming_ = true;
  naming_.join();
  stopNaming_ = false;
  namesTimer_->stop();
}

void HistoryModel::startNaming() {
  stopNaming();
  {
    std::lock_guard lock(namedMutex_);
    named_.clear();
  }
  std::vector<quint32> keys;
  if (namer_) {
    QSet<quint32> seen;
    for (const history::Entry& entry : entries_) {
      const quint32 key = packed(entry);
      if (!names_.contains(key) && !seen.contains(key)) {
        seen.insert(key);
        keys.push_back(key);
      }
    }
  }
  if (keys.empty()) {
    namesReady_ = true;
    return;
  }
  namesReady_ = false;
  {
    std::lock_guard lock(namedMutex_);
    namingDone_ = false;
  }
  naming_ = std::thread([this, keys = std::move(keys), namer = namer_] {
    std::vector<std::pair<quint32, NamedColor>> batch;
    const auto hand = [&](bool last) {
      std::lock_guard lock(namedMutex_);
      named_.insert(named_.end(), batch.begin(), batch.end());
      batch.clear();
      if (last) namingDone_ = true;
    };
    for (const quint32 key : keys) {
      if (stopNaming_) break;
      batch.emplace_back(key, namer(int(key >> 16), int((key >> 8) & 0xFF), int(key & 0xFF)));
      if (batch.size() == 1024) hand(false);
    }
    hand(true);
  });
  namesTimer_->start();
}

void HistoryModel::takeNames() {
  std::vector<std::pair<quint32, NamedColor>> found;
  bool done = false;
  {
    std::lock_guard lock(namedMutex_);
    found.swap(named_);
    done = namingDone_;
  }
  for (const auto& [key, named] : found) names_.insert(key, named);
  if (!done) return;
  namesTimer_->stop();
  namesReady_ = true;
  // A search by name may now find more.
  if (!search_.isEmpty() && !search_.startsWith(QLatin1Char('#'))) {
    beginResetModel();
    rebuildShown();
    endResetModel();
  } else if (!shown_.empty()) {
    Q_EMIT dataChanged(index(0, Name), index(rowCount() - 1, Name));
  }
}

bool HistoryModel::namesReady() const { return namesReady_; }

void HistoryModel::prepend(const history::Entry& entry) {
  // A commit reported after the window read the history is already here.
  if (!entries_.empty() && entry.id <= entries_.front().id &&
      std::any_of(entries_.begin(), entries_.end(),
                  [&entry](const history::Entry& e) { return e.id == entry.id; }))
    return;
  // Row indices point into entries_, which grows at its front: shift them.
  entries_.insert(entries_.begin(), entry);
  for (int& index : shown_) ++index;
  nameOf(entry.red, entry.green, entry.blue);  // so a search by name finds it
  if (!matches(entry)) return;
  beginInsertRows(QModelIndex(), 0, 0);
  shown_.insert(shown_.begin(), 0);
  endInsertRows();
}

void HistoryModel::setNamer(Namer namer) {
  stopNaming();
  beginResetModel();
  namer_ = std::move(namer);
  names_.clear();
  rebuildShown();
  endResetModel();
  startNaming();
}

void HistoryModel::setSearch(const QString& text) {
  const QString trimmed = text.trimmed();
  if (trimmed == search_) return;
  beginResetModel();
  search_ = trimmed;
  searchHex_ = hexDigits(trimmed);
  rebuildShown();
  endResetModel();
}

void HistoryModel::rebuildShown() {
  shown_.clear();
  shown_.reserve(entries_.size());
  for (int i = 0; i < static_cast<int>(entries_.size()); ++i)
    if (matches(entries_[i])) shown_.push_back(i);
}

bool HistoryModel::matches(const history::Entry& entry) const {
  if (search_.isEmpty()) return true;
  if (!searchHex_.isEmpty() && hexStartsWith(packed(entry), searchHex_)) return true;
  // "#..." asks for a hex.
  if (search_.startsWith(QLatin1Char('#'))) return false;
  if (entry.alias.contains(search_, Qt::CaseInsensitive)) return true;
  // Only names already worked out: computing them here would make the first
  // search over a long history wait for all of them.
  const auto named = names_.constFind(packed(entry));
  return named != names_.constEnd() && named->name.contains(search_, Qt::CaseInsensitive);
}

HistoryModel::NamedColor HistoryModel::nameOf(int red, int green, int blue) const {
  if (!namer_) return {};
  const quint32 key = (quint32(red) << 16) | (quint32(green) << 8) | quint32(blue);
  const auto found = names_.constFind(key);
  if (found != names_.constEnd()) return *found;
  NamedColor named = namer_(red, green, blue);
  names_.insert(key, named);
  return named;
}

const history::Entry& HistoryModel::entryAt(int row) const { return entries_[shown_[row]]; }

int HistoryModel::shownRowOf(qint64 id) const {
  for (int row = 0; row < static_cast<int>(shown_.size()); ++row)
    if (entries_[shown_[row]].id == id) return row;
  return -1;
}

void HistoryModel::setStarred(qint64 id, bool starred) {
  for (history::Entry& entry : entries_)
    if (entry.id == id) entry.starred = starred;
  const int row = shownRowOf(id);
  if (row >= 0) Q_EMIT dataChanged(index(row, Star), index(row, Star));
}

void HistoryModel::setAlias(qint64 id, const QString& alias) {
  for (history::Entry& entry : entries_)
    if (entry.id == id) entry.alias = alias;
  const int row = shownRowOf(id);
  if (row >= 0) Q_EMIT dataChanged(index(row, Name), index(row, Name));
}

void HistoryModel::removeIds(const std::vector<qint64>& ids) {
  beginResetModel();
  std::erase_if(entries_, [&ids](const history::Entry& entry) {
    return std::find(ids.begin(), ids.end(), entry.id) != ids.end();
  });
  rebuildShown();
  endResetModel();
}

int HistoryModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(shown_.size());
}

int HistoryModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : ColumnCount;
}

QVariant HistoryModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= static_cast<int>(shown_.size())) return {};
  const history::Entry& entry = entryAt(index.row());
  if (role == EntryIdRole) return entry.id;
  if (role == ColorRole) return QColor(entry.red, entry.green, entry.blue);
  const int column = index.column();
  if (role == Qt::DecorationRole && column == Colour)
    return QColor(entry.red, entry.green, entry.blue);
  if (role == Qt::ToolTipRole && column == Colour)
    return tr("Click the swatch to send the colour to the design applications again");
  if (role == Qt::EditRole && column == Name) return entry.alias;
  if (role != Qt::DisplayRole) return {};
  switch (column) {
    case Colour:
      return history::hexOf(entry);
    case Name: {
      const NamedColor named = nameOf(entry.red, entry.green, entry.blue);
      QString nearest;
      if (!named.name.isEmpty())
        nearest = QStringLiteral("%1 (ΔE00 %2)").arg(named.name).arg(named.deltaE, 0, 'f', 1);
      if (entry.alias.isEmpty()) return nearest;
      return nearest.isEmpty() ? entry.alias : entry.alias + QStringLiteral(" · ") + nearest;
    }
    case Rgb:
    case Cmyk:
    case Hsb:
    case Lab: {
      const auto all = convertToAllColor(entry.red, entry.green, entry.blue);
      if (column == Rgb) return all->txtRGB;
      if (column == Cmyk) return all->txtCMYK;
      if (column == Hsb) return all->txtHSB;
      return all->txtLAB.trimmed();
    }
    case Source:
      return history::sourceName(entry.source);
    case Time:
      return QDateTime::fromMSecsSinceEpoch(entry.timeMs)
          .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    case Star:
      return entry.starred ? QStringLiteral("★") : QStringLiteral("☆");
    default:
      return {};
  }
}

QVariant HistoryModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  switch (section) {
    case Colour:
      return tr("Colour");
    case Name:
      return tr("Name");
    case Rgb:
      return tr("RGB");
    case Cmyk:
      return tr("CMYK");
    case Hsb:
      return tr("HSB");
    case Lab:
      return tr("Lab");
    case Source:
      return tr("Source");
    case Time:
      return tr("Time");
    case Star:
      return QStringLiteral("★");
    default:
      return {};
  }
}

Qt::ItemFlags HistoryModel::flags(const QModelIndex& index) const {
  Qt::ItemFlags flags = QAbstractTableModel::flags(index);
  if (!index.isValid()) return flags;
  flags |= Qt::ItemIsDragEnabled;
  if (index.column() == Name) flags |= Qt::ItemIsEditable;
  return flags;
}

bool HistoryModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || index.column() != Name || role != Qt::EditRole) return false;
  const history::Entry& entry = entryAt(index.row());
  const QString alias = value.toString().trimmed();
  if (alias == entry.alias) return false;
  Q_EMIT aliasEdited(entry.id, alias);
  return true;
}

QStringList HistoryModel::mimeTypes() const {
  return {QStringLiteral("application/x-color"), QStringLiteral("text/plain")};
}

QMimeData* HistoryModel::mimeData(const QModelIndexList& indexes) const {
  // One colour per row, in the order shown; the first is the one dropped as a
  // colour, the text carries them all.
  std::vector<int> rows;
  for (const QModelIndex& index : indexes)
    if (index.isValid()) rows.push_back(index.row());
  std::sort(rows.begin(), rows.end());
  rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
  if (rows.empty()) return nullptr;
  const history::Entry& first = entryAt(rows.front());
  QMimeData* data = colorMimeData(QColor(first.red, first.green, first.blue));
  QStringList hexes;
  for (int row : rows) hexes << history::hexOf(entryAt(row));
  data->setText(hexes.join(QLatin1Char('\n')));
  return data;
}

}  // namespace tw
