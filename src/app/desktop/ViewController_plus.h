#pragma once

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QWidget>
#include <memory>
#include <optional>

#include "app/PanelLogic.h"
#include "app/PanelView.h"
#include "color/picker/PickLens.h"

namespace tw {

class ColorTransfer;
class DesktopNotifier;
class HistoryWindow;
class PreferencesDialog;

// The main colour panel as a widget: the content of the main window. Its logic
// (the owned objects, the observers, the colour bookkeeping, the battery
// timers) is PanelLogic, shared with `tintwell listen`; this class draws what
// that logic shows and carries the panel's actions.
//
// The containing window calls viewWillAppear() before each appearance and
// viewDidDisappear() when it is closed (PanelWindow does both).
class ViewController_plus : public QWidget, public PanelView {
  Q_OBJECT

 public:
  // Creates the pen link, the bridge, the colour helper and the telemetry
  // sender in that order (through PanelLogic), then builds the controls.
  ViewController_plus(TerminationReply& application, PanelParts parts, QWidget* parent = nullptr);
  ~ViewController_plus() override;

  // Registers the observers, starts the pen link and fixes the script files.
  void viewDidLoad();
  // The appear sequence: screen picker set-up, floating window, background,
  // telemetry and the start-up colour. Needs a window.
  void viewWillAppear();
  void viewDidAppear() {}
  // Draws what the first frame shows before any of that work has run: the
  // background, the link as it stands and the start-up colour's texts.
  void prepareFirstFrame();
  // Prints "viewDidDisappear!" and stops the stored battery timer.
  void viewDidDisappear();

  // Actions.
  // Arms a screen pick, opens the picking window, closes this panel's window
  // and sets the dropper cursor. The dropper's tooltip is its own again.
  void findScreenColor();
  // The screen picker could not answer the armed pick (no desktop portal with
  // PickColor): both flags are disarmed, the picking window closes, the panel
  // comes back without a new appearance (nothing is posted) and the dropper's
  // tooltip and the message under the panel say why.
  void screenPickUnanswered();
  // What the dropper says then; one line.
  static QString screenPickUnansweredText();
  // The user gave the armed pick up (Escape in the magnifier): both flags are
  // disarmed, the picking window closes and the panel comes back without a
  // new appearance; nothing is posted, pushed or counted.
  void cancelScreenPick();
  // The magnifier of the armed pick; null when there is none (the option is
  // off, the backend has none, or no pick is armed).
  PickLens* pickLens() const { return pickLens_; }
  // The version alert "Version : TW-V <version>".
  void showSetting();
  // Deliberately does nothing.
  void useCrownColor();
  // Opens the colour library dialog, modal to the panel.
  void showColorLibraries();
  // Shows the preferences window (not modal; one for the panel's life).
  void showPreferences();
  // Null until first shown.
  PreferencesDialog* preferencesDialog() const;
  // Shows the history window (one for the panel's life).
  void showHistory();
  // Null until first shown.
  HistoryWindow* historyWindow() const;

  PanelLogic& logic() { return *logic_; }
  // Drags the colour out of the crown and the hex field, copies a clicked
  // notation text.
  ColorTransfer& colorTransfer() { return *colorTransfer_; }
  ColorHelper& colorHelper() { return *logic_->colorHelper(); }

  // Interface references, named after their controls. Filled by the panel's
  // layout; the logic never replaces them.
  QPointer<QLabel> crown;
  QPointer<QLineEdit> hexInfo;
  QPointer<QLineEdit> rgbInfo;
  QPointer<QLineEdit> cmykInfo;
  QPointer<QLineEdit> hsbInfo;
  QPointer<QLineEdit> labInfo;
  QPointer<QPushButton> btStatus;
  QPointer<QPushButton> crownBtn;
  QPointer<QLabel> imgBattery;
  // Kept for the library feature and the recent colours: hidden, and changed
  // only by their options (the recent colours, the colour names).
  QPointer<QLineEdit> colorName;
  QPointer<QComboBox> colorLibraryCombos;
  QPointer<QPushButton> btnColor1;
  QPointer<QPushButton> btnColor2;
  QPointer<QPushButton> btnColor3;
  QPointer<QPushButton> btnColor4;
  QPointer<QPushButton> btnSelectedBtn;
  // The buttons that carry the actions.
  QPointer<QPushButton> dropperBtn;
  QPointer<QPushButton> libraryBtn;
  QPointer<QPushButton> infoBtn;

  // What the panel shows; main thread only.
  void showColor(const ColorStruct& color) override;
  void showColorTexts(const AllColor& notations) override;
  void setConnectionImage(const QString& imageName) override;
  // The connection indicator's tooltip and accessible description.
  void showConnectionState(const QString& text) override;
  // The desktop notifications follow the pen (DesktopNotifier).
  void penLinkChanged(bool connected) override;
  void showBatteryLevel(qint64 level) override;
  DesktopNotifier& notifier() { return *notifier_; }
  void preferencesApplied() override { Q_EMIT preferencesChanged(); }
  // The last level the pen gave while connected; absent otherwise.
  std::optional<qint64> batteryLevel() const { return batteryLevel_; }
  void setBatteryShown(bool shown) override;
  void setBatteryImage(const QString& imageName) override;
  // Shown under the panel for a few seconds, then hidden again.
  void showHostMessage(const QString& text) override;
  QPointer<QLabel> hostMessage;
  // The copy option: the chosen notation's text, as shown, to the clipboard.
  void colorAccepted(const ColorStruct& color) override;
  // Under the panel like a design application's message.
  void showHistoryMessage(const QString& text) override;
  // The four recent-colour buttons, each a swatch of one colour; a click
  // sends that colour to the design applications again.
  void showRecentColors(const std::vector<ColorStruct>& colors) override;
  // The colour-name field under the hex text; hidden while empty.
  void showColorName(const QString& text) override;

  // The background every appearance sets: opaque (40, 40, 20), a dark olive.
  static QColor backgroundColor();

 Q_SIGNALS:
  // The panel asked its window to close for a screen pick (not a quit).
  void closingForScreenPick();
  // The pick it closed for ended without a colour: the window comes back.
  void screenPickCancelled();
  // What the panel shows changed: the tray icon follows these.
  void connectionTextChanged(const QString& text);
  void batteryLevelChanged();
  void colorShown(const QColor& color);
  // The logic put preferences in force.
  void preferencesChanged();

 private:
  void fillBackground();
  void buildLayout();
  QPixmap imageNamed(const QString& name) const;
  // The magnifier for the pick just armed, when the option is on.
  void showPickLens();

  std::unique_ptr<PanelLogic> logic_;
  ColorTransfer* colorTransfer_ = nullptr;
  DesktopNotifier* notifier_ = nullptr;
  std::optional<qint64> batteryLevel_;
  QTimer* hostMessageTimer_ = nullptr;
  QPointer<PreferencesDialog> preferencesDialog_;
  QPointer<HistoryWindow> historyWindow_;
  QPointer<QWidget> pickingWindow_;
  QPointer<PickLens> pickLens_;
  std::vector<ColorStruct> recentShown_;
};

}  // namespace tw
