#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QWidget>
#include <memory>
#include <vector>

#include "app/desktop/HistoryModel.h"
#include "library/history/HistoryStore.h"
#include "library/palette/Palette.h"

namespace tw {

class PanelLogic;

// Every colour the panel has accepted, newest first, with its five
// notations, its nearest named colour, source and time. Search by hex or
// name; star, rename (double-click the name) and delete; with two colours
// selected, their CIEDE2000 difference; drag colours out; a click on a
// swatch sends that colour to the design applications again; export the
// history or the selection as a palette, and import palettes.
class HistoryWindow : public QWidget {
  Q_OBJECT

 public:
  HistoryWindow(PanelLogic& logic, QWidget* parent = nullptr);

  // Reads the whole history again.
  void reload();
  void setNamer(HistoryModel::Namer namer);

  // The selected rows' entries, in the order shown.
  std::vector<history::Entry> selectedEntries() const;
  // Stars the selection, or takes the star off when every selected colour
  // has one.
  void toggleStarOnSelection();
  void deleteSelection();
  // Sends the colour of a shown row to the design applications again.
  void pushRow(int row);
  // The selection (everything when nothing is selected) as a palette file;
  // false with the reason in the message line when it cannot be written.
  bool exportTo(const QString& path, palette::Format format);
  // Adds a palette file's colours to the history; the number added, or -1.
  qint64 importFrom(const QString& path);

  HistoryModel& model() { return *model_; }
  QTableView* table() const { return table_; }
  QLineEdit* searchField() const { return search_; }
  // The selection: its hex, or the difference of two colours.
  QLabel* statusLine() const { return status_; }
  // What the last action did ("#A1B2C3 sent to the design applications").
  QLabel* messageLine() const { return message_; }

  // "ΔE00 2.31 between #A1B2C3 (pen) and #A0B4C0 (screen)": two colours
  // compared as the status line shows them.
  static QString differenceText(const history::Entry& first, const history::Entry& second);

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  // Names from the library chosen now.
  void useActiveNames();
  void showSelectionStatus();
  void showCount();
  void chooseExportFile();
  void chooseImportFile();
  palette::Palette paletteOf(const std::vector<history::Entry>& entries) const;

  PanelLogic& logic_;
  HistoryModel* model_;
  QTableView* table_;
  QLineEdit* search_;
  QLabel* count_;
  QLabel* status_;
  QLabel* message_;
  int namesRow_ = -1;
};

}  // namespace tw
