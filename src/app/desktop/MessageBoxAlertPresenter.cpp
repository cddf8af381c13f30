#include "app/desktop/MessageBoxAlertPresenter.h"

#include <QMessageBox>

namespace tw {

void MessageBoxAlertPresenter::showInformation(const QString& message, const QString& informative) {
  QMessageBox alert(QMessageBox::Information, QStringLiteral("Tintwell"), message);
  alert.setObjectName(QStringLiteral("bridgeAlert"));
  alert.setInformativeText(informative);
  alert.addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
  alert.exec();
}

}  // namespace tw
