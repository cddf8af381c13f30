#pragma once

#include <QComboBox>
#include <QDialog>
#include <QPointer>

namespace tw {

// The colour library dialog: one combo box of name libraries. Choosing one
// logs "i pick : <row>", announces the row as "Notification_ColorLibraryChanged"
// (the panel makes it the active name library) and closes the dialog. The list drops down by itself
// 0.3 s (scaled) after the dialog shows. Controller and view in one widget; deletes itself when
// closed.
class VCPantonePicker : public QDialog {
  Q_OBJECT

 public:
  explicit VCPantonePicker(QWidget* parent = nullptr);

  // The libraries offered, in row order: the built-in ones, then the user's
  // imports.
  static QStringList libraryNames();

  QComboBox* pantoneCombobox() const { return pantoneCombobox_; }
  void setPantoneCombobox(QComboBox* comboBox) { pantoneCombobox_ = comboBox; }

  // Makes this dialog the combo box's delegate. Stops the process without one.
  void viewDidLoad();
  // Schedules the list's opening; nothing happens then if the combo box has
  // gone.
  void viewWillAppear();
  // A choice: the selected row (-1 for none) is logged and posted, then the
  // dialog closes. Stops the process without a combo box.
  void comboBoxSelectionDidChange();

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  QPointer<QComboBox> pantoneCombobox_;
};

}  // namespace tw
