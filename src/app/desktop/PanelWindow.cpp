#include "app/desktop/PanelWindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QPointer>
#include <QShowEvent>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

#include "app/AppDelegate.h"
#include "app/desktop/TrayIcon.h"
#include "app/desktop/ViewController_plus.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
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

  connect(content_, &ViewController_plus::closingForScreenPick, this, [this] {
    closingForScreenPick_ = true;
    holdOffScreen_ = true;
  });
  connect(content_, &ViewController_plus::screenPickCancelled, this,
          &PanelWindow::returnAfterCancelledPick);
  // The picked colour is posted once its pixel has been read (on the main
  // thread; pen colours come from elsewhere and carry another source).
  NotificationCenter::defaultCenter().addObserver(
      notification::newColor(), [self = QPointer<PanelWindow>(this)](const Notification& n) {
        if (!n.userInfo ||
            n.userInfo->value(notification::quillaKey()) != QLatin1String("NewScreenColor"))
          return;
        QTimer::singleShot(0, self, [self] {
          if (self) self->revealAfterScreenPick();
        });
      });

  // The actions, also on the panel's context menu.
  const auto addAction = [this](const QString& text, const QKeySequence& keys, auto slot) {
    auto* action = new QAction(text, this);
    action->setShortcut(keys);
    action->setShortcutContext(Qt::ApplicationShortcut);
    connect(action, &QAction::triggered, this, slot);
    content_->addAction(action);
    return action;
  };
  QAction* pick = addAction(tr("Pick from Screen"), QKeySequence(Qt::CTRL | Qt::Key_D),
                            [this] { content_->findScreenColor(); });
  addAction(tr("Colour Libraries…"), QKeySequence(Qt::CTRL | Qt::Key_L),
            [this] { content_->showColorLibraries(); });
  QAction* history = addAction(tr("History…"), QKeySequence(Qt::CTRL | Qt::Key_H),
                               [this] { content_->showHistory(); });
  QAction* preferences = addAction(tr("Preferences…"), QKeySequence(Qt::CTRL | Qt::Key_Comma),
                                   [this] { content_->showPreferences(); });
  // Ctrl+, everywhere, and the desktop's own key for it where that differs.
  QList<QKeySequence> preferenceKeys{preferences->shortcut()};
  for (const QKeySequence& keys : QKeySequence::keyBindings(QKeySequence::Preferences))
    if (!preferenceKeys.contains(keys)) preferenceKeys << keys;
  preferences->setShortcuts(preferenceKeys);
  // The pen is not taken back by itself after a disconnection unless the
  // preferences say so; this asks for it once.
  QAction* reconnect =
      addAction(tr("Reconnect"), QKeySequence(), [this] { content_->logic().reconnectPen(); });
  reconnect->setObjectName(QStringLiteral("reconnectAction"));
  addAction(tr("About Tintwell"), QKeySequence(), [this] { content_->showSetting(); });
  auto* separator = new QAction(this);
  separator->setSeparator(true);
  content_->addAction(separator);
  QAction* quit = addAction(tr("Quit"), QKeySequence::Quit, [this] { delegate_.terminate(); });
  content_->setContextMenuPolicy(Qt::ActionsContextMenu);

  tray_ = new TrayIcon(*content_, {pick, history, preferences, reconnect, nullptr, quit}, this);
  connect(content_, &ViewController_plus::preferencesChanged, this,
          [this] { tray_->setShown(content_->logic().preferences().showTrayIcon()); });
}

void PanelWindow::setVisible(bool visible) {
  if (visible && holdOffScreen_ && !revealing_) setAttribute(Qt::WA_DontShowOnScreen, true);
  QWidget::setVisible(visible);
}

void PanelWindow::revealAfterScreenPick() {
  if (!holdOffScreen_) return;
  holdOffScreen_ = false;
  if (!isVisible() || !testAttribute(Qt::WA_DontShowOnScreen)) return;
  revealing_ = true;
  hide();
  setAttribute(Qt::WA_DontShowOnScreen, false);
  show();
  raise();
  activateWindow();
  revealing_ = false;
}

void PanelWindow::returnAfterCancelledPick() {
  holdOffScreen_ = false;
  setAttribute(Qt::WA_DontShowOnScreen, false);
  revealing_ = true;
  show();
  raise();
  activateWindow();
  revealing_ = false;
}

void PanelWindow::showEvent(QShowEvent* event) {
  // Restoring from the taskbar, or putting the panel on the screen after a
  // pick, is not a new appearance. The first one, while the launch waits for
  // the first frame, is the launch's.
  if (!event->spontaneous() && !revealing_ && !delegate_.isLaunchPending())
    content_->viewWillAppear();
  QWidget::showEvent(event);
}

void PanelWindow::showFirstFrame() {
  content_->prepareFirstFrame();
  create();
  windowHandle()->installEventFilter(this);
  qApp->installEventFilter(this);
  show();
  // A window that is never exposed (mapped on a hidden workspace, say) must
  // not hold the pen link and telemetry back for long.
  QTimer::singleShot(1000, this, &PanelWindow::finishLaunching);
}

void PanelWindow::finishLaunching() {
  qApp->removeEventFilter(this);
  if (QWindow* handle = windowHandle()) handle->removeEventFilter(this);
  delegate_.finishLaunching();
}

bool PanelWindow::eventFilter(QObject* watched, QEvent* event) {
  if (!delegate_.isLaunchPending()) return QWidget::eventFilter(watched, event);
  if (watched == windowHandle() && event->type() == QEvent::Expose) {
    // The window paints and flushes as this event is handled; the launch
    // follows once it has been.
    if (windowHandle()->isExposed()) QTimer::singleShot(0, this, &PanelWindow::finishLaunching);
    return false;
  }
  switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
    case QEvent::KeyPress:
    case QEvent::ShortcutOverride:
    case QEvent::Wheel:
    case QEvent::ContextMenu:
    case QEvent::DragEnter:
    case QEvent::Close:
      // The user got there first: start now, then handle it.
      if (event->spontaneous()) finishLaunching();
      break;
    default:
      break;
  }
  return false;
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
