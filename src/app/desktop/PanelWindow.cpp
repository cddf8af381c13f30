#include "app/desktop/PanelWindow.h"

#include <QAction>
#include <QCloseEvent>
#include <QShowEvent>
#include <QTimer>
#include <QVBoxLayout>

#include "app/AppDelegate.h"
#include "app/desktop/ViewController_plus.h"
#include "resources/NamedImages.h"

namespace tw {

PanelWindow::PanelWindow(AppDelegate& delegate, ViewController_plus* contentViewController)
    : QWidget(nullptr, Qt::Window | Qt::WindowStaysOnTopHint),
      delegate_(delegate),
      content_(contentViewController) {
  setObjectName(QStringLiteral("PanelWindow"));
  setWindowTitle(QStringLiteral("Tintwell"));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(content_);
  layout->setSizeConstraint(QLayout::SetFixedSize);

  connect(content_, &ViewController_plus::closingForScreenPick, this,
          [this] { closingForScreenPick_ = true; });

  // The actions, also on the panel's context menu.
  const auto addAction = [this](const QString& text, const QKeySequence& keys, auto slot) {
    auto* action = new QAction(text, this);
    action->setShortcut(keys);
    action->setShortcutContext(Qt::ApplicationShortcut);
    connect(action, &QAction::triggered, this, slot);
    content_->addAction(action);
    return action;
  };
  addAction(tr("Pick from Screen"), QKeySequence(Qt::CTRL | Qt::Key_D),
            [this] { content_->findScreenColor(); });
  addAction(tr("Colour Libraries…"), QKeySequence(Qt::CTRL | Qt::Key_L),
            [this] { content_->showColorLibraries(); });
  addAction(tr("About Tintwell"), QKeySequence(), [this] { content_->showSetting(); });
  auto* separator = new QAction(this);
  separator->setSeparator(true);
  content_->addAction(separator);
  addAction(tr("Quit"), QKeySequence::Quit, [this] { delegate_.terminate(); });
  content_->setContextMenuPolicy(Qt::ActionsContextMenu);
}

void PanelWindow::showEvent(QShowEvent* event) {
  // Restoring from the taskbar is not a new appearance.
  if (!event->spontaneous()) content_->viewWillAppear();
  QWidget::showEvent(event);
}

void PanelWindow::closeEvent(QCloseEvent* event) {
  event->accept();
  content_->viewDidDisappear();
  if (closingForScreenPick_) {
    closingForScreenPick_ = false;
    return;
  }
  // The last window closed: quit through the handshake, once the close is done.
  if (delegate_.applicationShouldTerminateAfterLastWindowClosed())
    QTimer::singleShot(0, &delegate_, [this] { delegate_.terminate(); });
}

}  // namespace tw
