#include "library/dialog/VCPantonePicker.h"

#include <QShowEvent>
#include <QTimer>
#include <QVBoxLayout>

#include "common/Fatal.h"
#include "common/Log.h"
#include "common/TimeScale.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "library/names/NameLibraries.h"

namespace tw {

VCPantonePicker::VCPantonePicker(QWidget* parent) : QDialog(parent) {
  setAttribute(Qt::WA_DeleteOnClose);
  setWindowTitle(tr("Colour libraries"));
  auto* combo = new QComboBox(this);
  combo->setObjectName(QStringLiteral("pantoneCombobox"));
  combo->setAccessibleName(tr("Colour library"));
  combo->setAccessibleDescription(tr("Choose one of the colour libraries"));
  combo->addItems(libraryNames());
  // Nothing chosen yet, so any row (the first too) is a choice.
  combo->setCurrentIndex(-1);
  combo->setPlaceholderText(tr("Choose a library"));
  combo->setMinimumContentsLength(24);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(combo);
  pantoneCombobox_ = combo;
  viewDidLoad();
}

QStringList VCPantonePicker::libraryNames() { return names::NameLibraries().titles(); }

void VCPantonePicker::viewDidLoad() {
  if (!pantoneCombobox_) fatalStop("the library dialog has no combo box");
  // `activated` also reports choosing the row already selected.
  connect(pantoneCombobox_, &QComboBox::activated, this,
          &VCPantonePicker::comboBoxSelectionDidChange);
}

void VCPantonePicker::viewWillAppear() {
  QTimer::singleShot(scaledMs(0.3), this, [combo = pantoneCombobox_] {
    if (combo) combo->showPopup();
  });
}

void VCPantonePicker::comboBoxSelectionDidChange() {
  if (!pantoneCombobox_) fatalStop("a library choice without the dialog's combo box");
  const qint64 index = pantoneCombobox_->currentIndex();
  logLine(QStringLiteral("i pick : ") + QString::number(index));
  NotificationCenter::defaultCenter().post(
      notification::colorLibraryChanged(), index,
      UserInfo{{QStringLiteral("Library"), QStringLiteral("Changed")}});
  close();
}

void VCPantonePicker::showEvent(QShowEvent* event) {
  QDialog::showEvent(event);
  if (!event->spontaneous()) viewWillAppear();
}

}  // namespace tw
