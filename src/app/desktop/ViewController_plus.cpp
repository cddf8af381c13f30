#include "app/desktop/ViewController_plus.h"

#include <QAccessible>
#include <QAction>
#include <QFont>
#include <QFontDatabase>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QVBoxLayout>
#include <QWindow>

#include "app/desktop/ColorTransfer.h"
#include "app/desktop/DesktopNotifier.h"
#include "app/desktop/HistoryWindow.h"
#include "app/desktop/PreferencesDialog.h"
#include "app/desktop/UncachedPixmapIcon.h"
#include "color/picker/ClearViewVC.h"
#include "color/picker/ClearWindow.h"
#include "color/picker/DropperCursor.h"
#include "color/picker/PickLens.h"
#include "common/Fatal.h"
#include "common/Version.h"
#include "library/dialog/VCPantonePicker.h"
#include "resources/NamedImages.h"
#include "resources/TintedImage.h"

namespace tw {

namespace {

const QColor kText(0xEC, 0xEC, 0xDF);
const QColor kMutedText(0x9C, 0x9C, 0x86);
const QColor kField(0x33, 0x33, 0x1A);

QLineEdit* makeField(QWidget* parent, const QString& name, const QFont& font) {
  auto* field = new QLineEdit(parent);
  field->setObjectName(name);
  // Read-only but selectable: designers copy these texts.
  field->setReadOnly(true);
  field->setFrame(false);
  field->setFont(font);
  // In the tab chain: Enter or Space copies the text (ColorTransfer).
  field->setFocusPolicy(Qt::StrongFocus);
  field->setContextMenuPolicy(Qt::DefaultContextMenu);
  return field;
}

QLabel* makeCaption(QWidget* parent, const QString& text) {
  auto* caption = new QLabel(text, parent);
  QPalette palette = caption->palette();
  palette.setColor(QPalette::WindowText, kMutedText);
  caption->setPalette(palette);
  return caption;
}

QPushButton* makeIconButton(QWidget* parent, const QString& name, const QString& toolTip,
                            const QString& description) {
  auto* button = new QPushButton(parent);
  button->setObjectName(name);
  button->setToolTip(toolTip);
  button->setAccessibleName(toolTip);
  button->setAccessibleDescription(description);
  button->setFlat(true);
  button->setFocusPolicy(Qt::TabFocus);
  return button;
}

// What a notation field says to a screen reader besides its name: the text
// it shows, so that a new colour is heard without moving the focus.
QString fieldDescription(const QString& text) {
  if (text.isEmpty()) return ViewController_plus::tr("No colour yet");
  return ViewController_plus::tr("%1. Enter or Space copies it.").arg(text);
}

// Sets `widget`'s description and tells the assistive technologies, also
// when the words are the same as before (the same colour picked twice is
// still a new pick). Qt 6.4 has no announcement of its own; a changed
// description sends DescriptionChanged by itself.
void announceDescription(QWidget* widget, const QString& description) {
  if (widget->accessibleDescription() != description) {
    widget->setAccessibleDescription(description);
    return;
  }
  QAccessibleEvent event(widget, QAccessible::DescriptionChanged);
  QAccessible::updateAccessibility(&event);
}

}  // namespace

ViewController_plus::ViewController_plus(TerminationReply& application, PanelParts parts,
                                         QWidget* parent)
    : QWidget(parent), logic_(std::make_unique<PanelLogic>(*this, application, std::move(parts))) {
  if (!logic_->colorHelper()) fatalStop("the desktop panel was made without a colour helper");
  buildLayout();
  notifier_ =
      new DesktopNotifier([this] { return logic_->preferences().notificationsEnabled(); }, this);
  colorHelper().pickUnanswered = [self = QPointer(this)] {
    if (self) self->screenPickUnanswered();
  };
}

ViewController_plus::~ViewController_plus() = default;

QColor ViewController_plus::backgroundColor() { return QColor::fromRgb(40, 40, 20); }

QPixmap ViewController_plus::imageNamed(const QString& name) const {
  return namedPixmap(name, devicePixelRatioF());
}

void ViewController_plus::buildLayout() {
  setObjectName(QStringLiteral("ViewController_plus"));
  QPalette palette = this->palette();
  palette.setColor(QPalette::WindowText, kText);
  palette.setColor(QPalette::Text, kText);
  palette.setColor(QPalette::Base, kField);
  palette.setColor(QPalette::Button, kField);
  palette.setColor(QPalette::ButtonText, kText);
  palette.setColor(QPalette::Highlight, QColor(0x6E, 0x6E, 0x3A));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  setPalette(palette);

  QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  QFont hexFont = mono;
  hexFont.setPointSizeF(mono.pointSizeF() * 1.6);
  hexFont.setBold(true);

  // Top row: connection on the left, battery on the right.
  setAccessibleName(tr("Colour panel"));
  setAccessibleDescription(
      tr("The colour from the pen or the screen, in hex, RGB, CMYK, HSB and Lab. Ctrl+D picks "
         "from the screen, Ctrl+L opens the colour libraries, Ctrl+H the history, Ctrl+comma "
         "the preferences; the Menu key opens every action."));
  auto* bt = makeIconButton(this, QStringLiteral("btStatus"), tr("Pen connection"),
                            tr("The state of the pen's link"));
  bt->setIcon(QIcon(imageNamed(QStringLiteral("BT off"))));
  bt->setIconSize(QSize(24, 24));
  btStatus = bt;
  auto* battery = new QLabel(this);
  battery->setObjectName(QStringLiteral("imgBattery"));
  battery->setPixmap(imageNamed(QStringLiteral("50")));
  battery->setToolTip(tr("Pen battery"));
  battery->setAccessibleName(tr("Pen battery"));
  battery->setAccessibleDescription(tr("No level yet"));
  battery->hide();  // until a pen connects
  imgBattery = battery;
  auto* top = new QHBoxLayout;
  top->addWidget(bt);
  top->addStretch(1);
  top->addWidget(battery);

  // The crown, tinted with the colour.
  auto* crownView = new QLabel(this);
  crownView->setObjectName(QStringLiteral("crown"));
  crownView->setPixmap(imageNamed(QStringLiteral("crown")));
  crownView->setAlignment(Qt::AlignCenter);
  crownView->setMinimumSize(72, 72);
  crownView->setAccessibleName(tr("Colour swatch"));
  crownView->setAccessibleDescription(
      tr("The colour shown. Drag it into another application, or press Enter or Space to copy "
         "it."));
  // The drag's keyboard counterpart: Enter or Space copies the colour.
  crownView->setFocusPolicy(Qt::TabFocus);
  crown = crownView;

  auto* hex = makeField(this, QStringLiteral("hexInfo"), hexFont);
  hex->setAlignment(Qt::AlignCenter);
  hex->setAccessibleName(tr("Hex value"));
  hex->setAccessibleDescription(fieldDescription(QString()));
  hexInfo = hex;

  // The four notations, a caption each.
  auto* grid = new QGridLayout;
  grid->setHorizontalSpacing(10);
  grid->setVerticalSpacing(2);
  const struct {
    const char* caption;
    const char* name;
    QPointer<QLineEdit>* field;
  } rows[] = {{"RGB", "rgbInfo", &rgbInfo},
              {"CMYK", "cmykInfo", &cmykInfo},
              {"HSB", "hsbInfo", &hsbInfo},
              {"Lab", "labInfo", &labInfo}};
  int row = 0;
  for (const auto& r : rows) {
    grid->addWidget(makeCaption(this, QString::fromLatin1(r.caption)), row, 0);
    auto* field = makeField(this, QString::fromLatin1(r.name), mono);
    field->setAccessibleName(tr("%1 value").arg(QString::fromLatin1(r.caption)));
    field->setAccessibleDescription(fieldDescription(QString()));
    field->setMinimumWidth(QFontMetrics(mono).horizontalAdvance(QLatin1Char('0')) * 24);
    grid->addWidget(field, row, 1);
    *r.field = field;
    ++row;
  }

  // Bottom row: the crown button and the three actions.
  auto* crownButton = makeIconButton(this, QStringLiteral("crownBtn"), tr("Current colour"),
                                     tr("The colour shown, as a small swatch"));
  // The same drawing as the swatch's: decoded once, not twice, on the way to the
  // first frame.
  crownButton->setIcon(QIcon(crownView->pixmap()));
  crownButton->setIconSize(QSize(24, 24));
  connect(crownButton, &QPushButton::clicked, this, &ViewController_plus::useCrownColor);
  crownBtn = crownButton;
  auto* dropper = makeIconButton(this, QStringLiteral("dropperBtn"), tr("Pick from screen"),
                                 tr("Pick a colour from anywhere on the screen (Ctrl+D)"));
  dropper->setIcon(QIcon(imageNamed(QStringLiteral("dropper2.png"))));
  dropper->setIconSize(QSize(22, 22));
  connect(dropper, &QPushButton::clicked, this, &ViewController_plus::findScreenColor);
  dropperBtn = dropper;
  auto* library = makeIconButton(this, QStringLiteral("libraryBtn"), tr("Colour libraries"),
                                 tr("Choose a colour library (Ctrl+L)"));
  library->setIcon(QIcon(imageNamed(QStringLiteral("library"))));
  library->setIconSize(QSize(22, 22));
  connect(library, &QPushButton::clicked, this, &ViewController_plus::showColorLibraries);
  libraryBtn = library;
  auto* info =
      makeIconButton(this, QStringLiteral("infoBtn"), tr("About Tintwell"), tr("Show the version"));
  info->setIcon(QIcon(imageNamed(QStringLiteral("info"))));
  info->setIconSize(QSize(22, 22));
  connect(info, &QPushButton::clicked, this, &ViewController_plus::showSetting);
  infoBtn = info;
  auto* bottom = new QHBoxLayout;
  bottom->addWidget(crownButton);
  bottom->addStretch(1);
  bottom->addWidget(dropper);
  bottom->addWidget(library);
  bottom->addWidget(info);

  // Declared for features this version does not carry out; bound here and
  // kept out of sight so nothing dead shows.
  auto* name = new QLineEdit(this);
  name->setObjectName(QStringLiteral("colorName"));
  name->hide();
  colorName = name;
  auto* combos = new QComboBox(this);
  combos->setObjectName(QStringLiteral("colorLibraryCombos"));
  combos->setAccessibleName(tr("Colour library"));
  combos->setAccessibleDescription(tr("Not in use"));
  combos->hide();
  colorLibraryCombos = combos;
  QPointer<QPushButton>* recent[] = {&btnColor1, &btnColor2, &btnColor3, &btnColor4,
                                     &btnSelectedBtn};
  const char* recentNames[] = {"btnColor1", "btnColor2", "btnColor3", "btnColor4",
                               "btnSelectedBtn"};
  auto* recentRow = new QHBoxLayout;
  recentRow->setSpacing(4);
  for (int i = 0; i < 5; ++i) {
    auto* button = new QPushButton(this);
    button->setObjectName(QString::fromLatin1(recentNames[i]));
    button->setAccessibleName(i < 4 ? tr("Recent colour") : tr("Selected colour"));
    button->setAccessibleDescription(
        i < 4 ? tr("Sends this colour to the design applications again") : tr("Not in use"));
    button->hide();
    *recent[i] = button;
    if (i < 4) {
      button->setFlat(true);
      button->setFixedSize(30, 22);
      button->setIconSize(QSize(26, 18));
      recentRow->addWidget(button);
      connect(button, &QPushButton::clicked, this, [this, i] {
        if (i < static_cast<int>(recentShown_.size())) logic_->pushAgain(recentShown_[i]);
      });
    }
  }
  recentRow->addStretch(1);
  name->setReadOnly(true);
  name->setFrame(false);
  name->setAlignment(Qt::AlignHCenter);
  name->setFocusPolicy(Qt::StrongFocus);
  name->setAccessibleName(tr("Nearest named colour"));
  name->setAccessibleDescription(tr("The name of the library colour nearest to the one shown"));

  colorTransfer_ =
      new ColorTransfer(crownView, hex, {hex, rgbInfo, cmykInfo, hsbInfo, labInfo}, this);
  crownView->setToolTip(tr("Drag the colour into another application"));

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(14, 10, 14, 10);
  layout->setSpacing(6);
  layout->addLayout(top);
  layout->addWidget(crownView);
  layout->addWidget(hex);
  // Both hidden, so they take no room, unless their options are on.
  layout->addWidget(name);
  layout->addLayout(recentRow);
  layout->addSpacing(4);
  layout->addLayout(grid);
  layout->addSpacing(4);
  layout->addLayout(bottom);

  // Hidden unless a design application has something to say, so the panel
  // looks as it always has.
  hostMessage = new QLabel(this);
  hostMessage->setObjectName(QStringLiteral("hostMessage"));
  hostMessage->setWordWrap(true);
  hostMessage->setStyleSheet(QStringLiteral("color: #f0e0a0;"));
  hostMessage->setAccessibleName(tr("Message"));
  hostMessage->setAccessibleDescription(tr("What a design application or the panel has to say"));
  hostMessage->hide();
  layout->addWidget(hostMessage);
  hostMessageTimer_ = new QTimer(this);
  hostMessageTimer_->setSingleShot(true);
  hostMessageTimer_->setInterval(6000);
  connect(hostMessageTimer_, &QTimer::timeout, hostMessage, &QWidget::hide);

  // Tab goes down the panel as it reads: the link, the colour, its texts, the
  // actions. Hidden controls are skipped until their options show them.
  QWidget* chain[] = {bt,          crownView, hex,     name,     btnColor1, btnColor2,
                      btnColor3,   btnColor4, rgbInfo, cmykInfo, hsbInfo,   labInfo,
                      crownButton, dropper,   library, info};
  for (std::size_t i = 1; i < std::size(chain); ++i) setTabOrder(chain[i - 1], chain[i]);
}

void ViewController_plus::showHostMessage(const QString& text) {
  hostMessage->setText(text);
  hostMessage->show();
  hostMessageTimer_->start();
}

void ViewController_plus::viewDidLoad() { logic_->viewDidLoad(); }

void ViewController_plus::viewWillAppear() {
  QWidget* panelWindow = window();
  if (!panelWindow || !panelWindow->isWindow() || panelWindow == this)
    fatalStop("the colour panel has no window as it appears");
  ColorHelper& helper = colorHelper();
  helper.window = panelWindow;
  helper.installMonitor();
  helper.mainScreenHeight = helper.mainDisplayPixelsHigh();

  // Floating: above ordinary windows.
  if (QWindow* handle = panelWindow->windowHandle())
    handle->setFlag(Qt::WindowStaysOnTopHint, true);

  fillBackground();
  logic_->appear();
}

void ViewController_plus::fillBackground() {
  QPalette palette = this->palette();
  palette.setColor(QPalette::Window, backgroundColor());
  setPalette(palette);
  setAutoFillBackground(true);
}

void ViewController_plus::prepareFirstFrame() {
  fillBackground();
  logic_->showFirstFrame();
}

void ViewController_plus::viewDidDisappear() { logic_->viewDidDisappear(); }

void ViewController_plus::findScreenColor() {
  // Whatever the last pick said, this one may be answered.
  dropperBtn->setToolTip(tr("Pick from screen"));
  colorHelper().bPickScreenColor = true;
  logic_->armScreenPickCount();

  auto* picker = ClearWindow::windowWithContentViewController(new ClearViewVC);
  pickingWindow_ = picker;
  picker->makeKeyAndOrderFront();
  picker->appMainWindow = window();
  picker->showWindow();
  Q_EMIT closingForScreenPick();
  window()->close();
  setDropperCursor();
  showPickLens();
}

void ViewController_plus::showPickLens() {
  const std::shared_ptr<PickLensSource>& source = colorHelper().lensSource();
  if (!logic_->preferences().magnifierEnabled() || !source) return;
  if (pickLens_) pickLens_->close();
  // The lens lives while the pick is armed; a click, a key pick and a cancel
  // all disarm it.
  auto* lens = new PickLens(source, [self = QPointer<ViewController_plus>(this)] {
    return self && static_cast<bool>(self->colorHelper().bPickScreenColor);
  });
  pickLens_ = lens;
  // The lens shows the pixels as they are; the picking view's dropper image
  // next to the pointer would be in it.
  if (auto* picker = qobject_cast<ClearWindow*>(pickingWindow_.data()))
    if (ClearViewVC* view = picker->contentViewController(); view && view->dropperImgView)
      view->dropperImgView->hide();
  connect(lens, &PickLens::pickRequested, this, [this] { colorHelper().mouseDownHandler(); });
  connect(lens, &PickLens::cancelRequested, this, &ViewController_plus::cancelScreenPick);
  lens->start();
}

void ViewController_plus::cancelScreenPick() {
  if (!colorHelper().bPickScreenColor) return;
  colorHelper().bPickScreenColor = false;
  logic_->disarmScreenPickCount();
  if (pickingWindow_) pickingWindow_->close();
  if (pickLens_) pickLens_->close();
  restoreCursor();
  Q_EMIT screenPickCancelled();
}

QString ViewController_plus::screenPickUnansweredText() {
  return tr(
      "Screen picking needs the desktop portal (xdg-desktop-portal with a Screenshot "
      "backend), which did not answer; the pen still works.");
}

void ViewController_plus::screenPickUnanswered() {
  logic_->disarmScreenPickCount();
  if (pickingWindow_) pickingWindow_->close();
  restoreCursor();
  const QString why = screenPickUnansweredText();
  dropperBtn->setToolTip(why);
  Q_EMIT screenPickCancelled();
  showHostMessage(why);
}

void ViewController_plus::showSetting() {
  QMessageBox alert(QMessageBox::Information, tr("Tintwell"),
                    QStringLiteral("Version : TW-V ") + QString::fromLatin1(kVersion),
                    QMessageBox::NoButton, this);
  alert.setObjectName(QStringLiteral("versionAlert"));
  alert.setInformativeText(QString());
  alert.addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
  alert.exec();
}

void ViewController_plus::useCrownColor() {}

void ViewController_plus::showColorLibraries() {
  auto* dialog = new VCPantonePicker(this);
  dialog->setWindowModality(Qt::WindowModal);
  dialog->show();
}

void ViewController_plus::showPreferences() {
  if (!preferencesDialog_) preferencesDialog_ = new PreferencesDialog(*logic_, this);
  preferencesDialog_->show();
  preferencesDialog_->raise();
  preferencesDialog_->activateWindow();
}

PreferencesDialog* ViewController_plus::preferencesDialog() const { return preferencesDialog_; }

void ViewController_plus::showHistory() {
  if (!historyWindow_) historyWindow_ = new HistoryWindow(*logic_, this);
  historyWindow_->show();
  historyWindow_->raise();
  historyWindow_->activateWindow();
}

HistoryWindow* ViewController_plus::historyWindow() const { return historyWindow_; }

void ViewController_plus::showHistoryMessage(const QString& text) { showHostMessage(text); }

void ViewController_plus::showRecentColors(const std::vector<ColorStruct>& colors) {
  recentShown_ = colors;
  QPushButton* buttons[] = {btnColor1, btnColor2, btnColor3, btnColor4};
  for (int i = 0; i < 4; ++i) {
    QPushButton* button = buttons[i];
    if (!button) continue;
    if (i >= static_cast<int>(colors.size())) {
      button->hide();
      continue;
    }
    const ColorStruct& color = colors[i];
    QPixmap swatch(button->iconSize());
    swatch.fill(QColor(int(color.iR), int(color.iG), int(color.iB)));
    button->setIcon(QIcon(swatch));
    const QString hex = QStringLiteral("#") + color.colorHex;
    button->setToolTip(tr("%1: click to send it to the design applications again").arg(hex));
    button->setAccessibleName(tr("Recent colour %1").arg(hex));
    button->setAccessibleDescription(tr("Sends %1 to the design applications again").arg(hex));
    button->show();
  }
}

void ViewController_plus::showColorName(const QString& text) {
  if (!colorName) return;
  colorName->setText(text);
  colorName->setVisible(!text.isEmpty());
}

void ViewController_plus::colorAccepted(const ColorStruct&) {
  const Preferences& preferences = logic_->preferences();
  if (!preferences.copyEnabled()) return;
  // The fields were just set for this colour: copy what the user sees.
  const QString notation = preferences.copyNotation();
  QLineEdit* field = notation == QLatin1String("rgb")    ? rgbInfo.data()
                     : notation == QLatin1String("cmyk") ? cmykInfo.data()
                     : notation == QLatin1String("hsb")  ? hsbInfo.data()
                     : notation == QLatin1String("lab")  ? labInfo.data()
                                                         : hexInfo.data();
  if (!field) fatalStop("a notation field of the panel is missing");
  ColorTransfer::copyToClipboard(field->text());
}

void ViewController_plus::showColor(const ColorStruct& color) {
  if (!crown || crown->pixmap().isNull()) fatalStop("the crown image is missing");
  if (!crownBtn || !hexInfo) fatalStop("a colour control of the panel is missing");
  crown->setPixmap(tintedImage(crown->pixmap(), color.color));
  crownBtn->setIcon(uncachedPixmapIcon(tintedImage(crown->pixmap(), color.color)));
  hexInfo->setText(QStringLiteral("#") + color.colorHex);
  announceDescription(hexInfo, fieldDescription(hexInfo->text()));
  Q_EMIT colorShown(color.color);
}

void ViewController_plus::showColorTexts(const AllColor& notations) {
  if (!rgbInfo || !cmykInfo || !hsbInfo || !labInfo)
    fatalStop("a notation field of the panel is missing");
  rgbInfo->setText(notations.txtRGB);
  cmykInfo->setText(notations.txtCMYK);
  hsbInfo->setText(notations.txtHSB);
  labInfo->setText(notations.txtLAB);
  for (QLineEdit* field : {rgbInfo.data(), cmykInfo.data(), hsbInfo.data(), labInfo.data()})
    announceDescription(field, fieldDescription(field->text()));
}

void ViewController_plus::setConnectionImage(const QString& imageName) {
  if (!btStatus) fatalStop("the connection indicator is missing");
  btStatus->setIcon(QIcon(imageNamed(imageName)));
  btStatus->setProperty("imageName", imageName);
}

void ViewController_plus::showConnectionState(const QString& text) {
  if (!btStatus) fatalStop("the connection indicator is missing");
  btStatus->setToolTip(text);
  btStatus->setAccessibleDescription(text);
  Q_EMIT connectionTextChanged(text);
}

void ViewController_plus::penLinkChanged(bool connected) {
  if (connected) {
    notifier_->penConnected();
  } else {
    notifier_->penDisconnected();
    batteryLevel_.reset();
    if (imgBattery) imgBattery->setAccessibleDescription(tr("No level yet"));
    Q_EMIT batteryLevelChanged();
  }
}

void ViewController_plus::showBatteryLevel(qint64 level) {
  if (!imgBattery || imgBattery->isHidden()) return;  // no pen connected
  notifier_->batteryLevel(level);
  batteryLevel_ = level;
  imgBattery->setAccessibleDescription(tr("%1 percent").arg(level));
  Q_EMIT batteryLevelChanged();
}

void ViewController_plus::setBatteryShown(bool shown) {
  if (!imgBattery) fatalStop("the battery image is missing");
  imgBattery->setVisible(shown);
}

void ViewController_plus::setBatteryImage(const QString& imageName) {
  if (!imgBattery) fatalStop("the battery image is missing");
  imgBattery->setPixmap(imageNamed(imageName));
  imgBattery->setProperty("imageName", imageName);
}

}  // namespace tw
