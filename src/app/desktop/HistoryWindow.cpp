#include "app/desktop/HistoryWindow.h"

#include <QAction>
#include <QDateTime>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QSaveFile>
#include <QVBoxLayout>
#include <algorithm>

#include "app/PanelLogic.h"
#include "color/ColorNotations.h"
#include "color/DeltaE.h"

namespace tw {

namespace {

ColorStruct colorOf(const history::Entry& entry) {
  return ColorStruct::fromChannels(entry.red, entry.green, entry.blue);
}

}  // namespace

HistoryWindow::HistoryWindow(PanelLogic& logic, QWidget* parent)
    : QWidget(parent, Qt::Window), logic_(logic) {
  setObjectName(QStringLiteral("HistoryWindow"));
  setWindowTitle(tr("Colour History"));
  setAttribute(Qt::WA_DeleteOnClose, false);

  search_ = new QLineEdit(this);
  search_->setObjectName(QStringLiteral("historySearch"));
  search_->setPlaceholderText(tr("Search by hex or name"));
  search_->setClearButtonEnabled(true);
  search_->setAccessibleName(tr("Search the history"));
  search_->setAccessibleDescription(tr("Filters the colours by hex value or name (Ctrl+F)"));
  count_ = new QLabel(this);
  count_->setObjectName(QStringLiteral("historyCount"));
  count_->setAccessibleName(tr("Colours in the history"));
  count_->setAccessibleDescription(tr("How many colours the history holds and shows"));

  model_ = new HistoryModel(this);
  table_ = new QTableView(this);
  table_->setObjectName(QStringLiteral("historyTable"));
  table_->setModel(model_);
  table_->setAccessibleName(tr("Colour history"));
  table_->setAccessibleDescription(
      tr("Every colour taken, newest first. Enter on a colour sends it again; F2 edits its "
         "name; Ctrl+S stars; Delete removes."));
  // Tab leaves the table for the buttons instead of walking its cells.
  table_->setTabKeyNavigation(false);
  table_->setSelectionBehavior(QAbstractItemView::SelectRows);
  table_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  table_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
  table_->setDragEnabled(true);
  table_->setDragDropMode(QAbstractItemView::DragOnly);
  table_->setWordWrap(false);
  table_->verticalHeader()->hide();
  // Fixed row heights and column widths: nothing measures 100,000 rows.
  table_->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  table_->verticalHeader()->setDefaultSectionSize(26);
  table_->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
  table_->horizontalHeader()->setStretchLastSection(false);
  const int widths[] = {92, 166, 84, 92, 84, 112, 54, 142, 26};
  for (int column = 0; column < HistoryModel::ColumnCount; ++column)
    table_->setColumnWidth(column, widths[column]);
  table_->setIconSize(QSize(20, 20));

  status_ = new QLabel(this);
  status_->setObjectName(QStringLiteral("historyStatus"));
  status_->setAccessibleName(tr("Selection"));
  status_->setAccessibleDescription(tr("What the selected colours are"));
  status_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  message_ = new QLabel(this);
  message_->setObjectName(QStringLiteral("historyMessage"));
  message_->setAccessibleName(tr("Message"));
  message_->setAccessibleDescription(tr("What the last action did"));

  auto* star = new QPushButton(tr("Star"), this);
  star->setObjectName(QStringLiteral("historyStar"));
  star->setAccessibleName(tr("Star"));
  star->setAccessibleDescription(tr("Star or unstar the selected colours (Ctrl+S)"));
  auto* remove = new QPushButton(tr("Delete"), this);
  remove->setObjectName(QStringLiteral("historyDelete"));
  remove->setAccessibleName(tr("Delete"));
  remove->setAccessibleDescription(tr("Remove the selected colours from the history (Delete)"));
  auto* exportButton = new QPushButton(tr("Export…"), this);
  exportButton->setObjectName(QStringLiteral("historyExport"));
  exportButton->setAccessibleName(tr("Export"));
  exportButton->setAccessibleDescription(tr("Save the history to a file (Ctrl+E)"));
  auto* importButton = new QPushButton(tr("Import…"), this);
  importButton->setObjectName(QStringLiteral("historyImport"));
  importButton->setAccessibleName(tr("Import"));
  importButton->setAccessibleDescription(tr("Add the colours of a history file"));
  connect(star, &QPushButton::clicked, this, &HistoryWindow::toggleStarOnSelection);
  connect(remove, &QPushButton::clicked, this, &HistoryWindow::deleteSelection);
  connect(exportButton, &QPushButton::clicked, this, &HistoryWindow::chooseExportFile);
  connect(importButton, &QPushButton::clicked, this, &HistoryWindow::chooseImportFile);

  auto* top = new QHBoxLayout;
  top->addWidget(search_, 1);
  top->addWidget(count_);
  auto* bottom = new QHBoxLayout;
  bottom->addWidget(status_, 1);
  bottom->addWidget(message_);
  bottom->addWidget(star);
  bottom->addWidget(remove);
  bottom->addWidget(exportButton);
  bottom->addWidget(importButton);
  auto* layout = new QVBoxLayout(this);
  layout->addLayout(top);
  layout->addWidget(table_, 1);
  layout->addLayout(bottom);
  resize(884, 480);

  const auto addKey = [this](const QKeySequence& keys, auto slot) {
    auto* action = new QAction(this);
    action->setShortcut(keys);
    action->setShortcutContext(Qt::WindowShortcut);
    connect(action, &QAction::triggered, this, slot);
    addAction(action);
  };
  addKey(QKeySequence::Find, [this] { search_->setFocus(Qt::ShortcutFocusReason); });
  addKey(QKeySequence::Delete, [this] { deleteSelection(); });
  addKey(QKeySequence(Qt::CTRL | Qt::Key_S), [this] { toggleStarOnSelection(); });
  addKey(QKeySequence(Qt::CTRL | Qt::Key_E), [this] { chooseExportFile(); });
  addKey(QKeySequence(Qt::CTRL | Qt::Key_W), [this] { close(); });

  connect(search_, &QLineEdit::textChanged, this, [this](const QString& text) {
    model_->setSearch(text);
    showSelectionStatus();
  });
  connect(model_, &HistoryModel::aliasEdited, this, [this](qint64 id, const QString& alias) {
    const auto store = logic_.history();
    if (store && store->setAlias(id, alias)) {
      model_->setAlias(id, alias);
      logic_.historyEdited();
    }
  });
  connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
          [this] { showSelectionStatus(); });
  connect(model_, &QAbstractItemModel::modelReset, this, [this] { showCount(); });
  connect(model_, &QAbstractItemModel::rowsInserted, this, [this] { showCount(); });
  // A click on the swatch itself; elsewhere a click only selects.
  connect(table_, &QTableView::clicked, this, [this](const QModelIndex& index) {
    if (index.column() == HistoryModel::Colour) pushRow(index.row());
    if (index.column() == HistoryModel::Star) {
      table_->selectRow(index.row());
      toggleStarOnSelection();
    }
  });
  connect(table_, &QTableView::activated, this, [this](const QModelIndex& index) {
    if (index.column() != HistoryModel::Name) pushRow(index.row());
  });

  logic_.onHistoryCommitted(this, [this](const history::Entry& entry) { model_->prepend(entry); });
  useActiveNames();
  reload();
}

void HistoryWindow::useActiveNames() {
  namesRow_ = logic_.preferences().nameLibrary();
  // A copy: the model names colours on a thread of its own, and the library
  // is immutable.
  const names::NameLibrary* active = logic_.activeNameLibrary();
  if (!active) {
    model_->setNamer({});
    return;
  }
  model_->setNamer([library = std::make_shared<const names::NameLibrary>(*active)](
                       int red, int green, int blue) -> HistoryModel::NamedColor {
    const std::vector<names::NameMatch> matches = library->nearest(red, green, blue, 1);
    if (matches.empty()) return {};
    return {matches.front().entry.name, matches.front().deltaE};
  });
}

void HistoryWindow::showEvent(QShowEvent* event) {
  // Another library may have been chosen while the window was closed.
  if (namesRow_ != logic_.preferences().nameLibrary()) useActiveNames();
  QWidget::showEvent(event);
}

void HistoryWindow::reload() {
  const auto store = logic_.history();
  model_->setEntries(store ? store->entries() : std::vector<history::Entry>{});
}

void HistoryWindow::setNamer(HistoryModel::Namer namer) { model_->setNamer(std::move(namer)); }

std::vector<history::Entry> HistoryWindow::selectedEntries() const {
  QModelIndexList rows = table_->selectionModel()->selectedRows();
  std::sort(rows.begin(), rows.end(),
            [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
  std::vector<history::Entry> entries;
  for (const QModelIndex& index : rows) entries.push_back(model_->entryAt(index.row()));
  return entries;
}

void HistoryWindow::toggleStarOnSelection() {
  const std::vector<history::Entry> entries = selectedEntries();
  if (entries.empty()) return;
  const auto store = logic_.history();
  if (!store) return;
  const bool star = !std::all_of(entries.begin(), entries.end(),
                                 [](const history::Entry& e) { return e.starred; });
  for (const history::Entry& entry : entries)
    if (store->setStarred(entry.id, star)) model_->setStarred(entry.id, star);
  logic_.historyEdited();
}

void HistoryWindow::deleteSelection() {
  const std::vector<history::Entry> entries = selectedEntries();
  if (entries.empty()) return;
  const auto store = logic_.history();
  if (!store) return;
  std::vector<qint64> ids;
  ids.reserve(entries.size());
  for (const history::Entry& entry : entries) ids.push_back(entry.id);
  if (!store->remove(ids)) {
    message_->setText(tr("The colours could not be deleted"));
    return;
  }
  model_->removeIds(ids);
  logic_.historyEdited();
  message_->setText(ids.size() == 1 ? tr("1 colour deleted")
                                    : tr("%1 colours deleted").arg(ids.size()));
}

void HistoryWindow::pushRow(int row) {
  if (row < 0 || row >= model_->rowCount()) return;
  const history::Entry& entry = model_->entryAt(row);
  logic_.pushAgain(colorOf(entry));
  message_->setText(tr("%1 sent to the design applications").arg(history::hexOf(entry)));
}

QString HistoryWindow::differenceText(const history::Entry& first, const history::Entry& second) {
  const auto lab = [](const history::Entry& e) {
    return labOfSRGB8(static_cast<std::uint8_t>(e.red), static_cast<std::uint8_t>(e.green),
                      static_cast<std::uint8_t>(e.blue));
  };
  const double difference = deltaE2000(lab(first), lab(second));
  return QStringLiteral("ΔE00 %1 between %2 (%3) and %4 (%5)")
      .arg(difference, 0, 'f', 2)
      .arg(history::hexOf(first), history::sourceName(first.source), history::hexOf(second),
           history::sourceName(second.source));
}

void HistoryWindow::showCount() {
  const int shown = model_->rowCount();
  const int total = model_->totalCount();
  count_->setText(shown == total ? tr("%n colour(s)", nullptr, total)
                                 : tr("%1 of %2").arg(shown).arg(total));
}

void HistoryWindow::showSelectionStatus() {
  showCount();
  const std::vector<history::Entry> entries = selectedEntries();
  if (entries.size() == 2) {
    status_->setText(differenceText(entries[0], entries[1]));
  } else if (entries.size() > 2) {
    status_->setText(tr("%1 colours selected").arg(entries.size()));
  } else if (entries.size() == 1) {
    status_->setText(history::hexOf(entries[0]));
  } else {
    status_->clear();
  }
}

palette::Palette HistoryWindow::paletteOf(const std::vector<history::Entry>& entries) const {
  palette::Palette result;
  result.name = QStringLiteral("Tintwell");
  for (const history::Entry& entry : entries)
    result.swatches.push_back({history::paletteName(entry), entry.red, entry.green, entry.blue});
  return result;
}

bool HistoryWindow::exportTo(const QString& path, palette::Format format) {
  std::vector<history::Entry> entries = selectedEntries();
  if (entries.empty()) {
    for (int row = 0; row < model_->rowCount(); ++row) entries.push_back(model_->entryAt(row));
  }
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly) ||
      file.write(palette::writePalette(paletteOf(entries), format)) < 0 || !file.commit()) {
    message_->setText(tr("Could not write %1: %2").arg(path, file.errorString()));
    return false;
  }
  message_->setText(tr("%n colour(s) exported to %1", nullptr, int(entries.size()))
                        .arg(QFileInfo(path).fileName()));
  return true;
}

qint64 HistoryWindow::importFrom(const QString& path) {
  const auto format = palette::formatFromName(path);
  QFile file(path);
  if (!format || *format == palette::Format::Css || !file.open(QIODevice::ReadOnly)) {
    message_->setText(tr("Could not read %1").arg(QFileInfo(path).fileName()));
    return -1;
  }
  const palette::ReadResult read = palette::readPalette(file.readAll(), *format);
  if (!read.palette) {
    message_->setText(tr("Could not read %1: %2").arg(QFileInfo(path).fileName(), read.error));
    return -1;
  }
  const auto store = logic_.history();
  if (!store) return -1;
  const qint64 now = QDateTime::currentMSecsSinceEpoch();
  std::vector<history::Entry> entries;
  for (const palette::Swatch& swatch : read.palette->swatches) {
    history::Entry entry{
        0, now, history::Source::Imported, swatch.red, swatch.green, swatch.blue, QString(), false};
    // A name that only repeats the hex is not the user's own.
    if (swatch.name.compare(history::hexOf(entry), Qt::CaseInsensitive) != 0)
      entry.alias = swatch.name;
    entries.push_back(entry);
  }
  const qint64 added = store->importEntries(entries);
  reload();
  logic_.historyEdited();
  message_->setText(tr("%n colour(s) imported", nullptr, int(added)));
  return added;
}

void HistoryWindow::chooseExportFile() {
  QString selected;
  const QString path = QFileDialog::getSaveFileName(
      this, tr("Export Colours"), QStringLiteral("Tintwell.gpl"),
      tr("GIMP palette (*.gpl);;Adobe Swatch Exchange (*.ase);;CSS custom properties "
         "(*.css);;CSV with every notation (*.csv)"),
      &selected);
  if (path.isEmpty()) return;
  auto format = palette::formatFromName(path);
  if (!format) {
    const QString suffix = selected.section(QStringLiteral("(*."), 1).left(3);
    format = palette::formatFromName(suffix);
  }
  if (format) exportTo(path, *format);
}

void HistoryWindow::chooseImportFile() {
  const QString path = QFileDialog::getOpenFileName(
      this, tr("Import Colours"), QString(), tr("Palettes (*.gpl *.ase *.csv);;All files (*)"));
  if (!path.isEmpty()) importFrom(path);
}

}  // namespace tw
