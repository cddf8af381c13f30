#pragma once

#include "bridge/AlertPresenter.h"

namespace tw {

// The bridge's notices as modal message boxes with one "OK" button.
class MessageBoxAlertPresenter : public AlertPresenter {
 public:
  void showInformation(const QString& message, const QString& informative) override;
};

}  // namespace tw
