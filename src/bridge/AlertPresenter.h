#pragma once

#include <QString>

namespace tw {

// Shows a blocking information message with one "OK" button. The desktop
// application shows a modal message box; headless runs and tests plug in their
// own. Called without any bridge lock held, so a nested event loop is safe.
class AlertPresenter {
 public:
  virtual ~AlertPresenter() = default;
  virtual void showInformation(const QString& message, const QString& informative) = 0;
};

// Shows nothing: for tools and runs without a display.
class SilentAlertPresenter : public AlertPresenter {
 public:
  void showInformation(const QString&, const QString&) override {}
};

}  // namespace tw
