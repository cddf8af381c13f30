#include "app/desktop/PreferencesDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>

#include "app/PanelLogic.h"
#include "app/Preferences.h"
#include "bridge/HostDispatcher.h"
#include "library/history/HistoryStore.h"
#include "library/names/NameLibraries.h"
#include "telemetry/TelemetryConfig.h"

namespace tw {

namespace {

// The captions the panel shows beside its notations.
QString notationCaption(const QString& notation) {
  if (notation == QLatin1String("hex")) return QStringLiteral("HEX");
  if (notation == QLatin1String("lab")) return QStringLiteral("Lab");
  return notation.toUpper();
}

QString reportBase() {
  QString base = telemetryBaseUrl();
  while (base.endsWith(QLatin1Char('/'))) base.chop(1);
  return base;
}

QLabel* makeText(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setWordWrap(true);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  return label;
}

}  // namespace

PreferencesDialog::PreferencesDialog(PanelLogic& logic, QWidget* parent)
    : QDialog(parent), logic_(logic) {
  setObjectName(QStringLiteral("PreferencesDialog"));
  setWindowTitle(tr("Tintwell Preferences"));
  setModal(false);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
  buttons->button(QDialogButtonBox::Close)->setAccessibleDescription(tr("Close the preferences"));

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(buildHosts());
  layout->addWidget(buildCopy());
  layout->addWidget(buildHistory());
  layout->addWidget(buildPicking());
  layout->addWidget(buildPen());
  layout->addWidget(buildReports(), 1);
  layout->addWidget(buttons);

  // The wrapped texts need more height at a given width than the layout's
  // plain minimum says: size the window by the height for its width.
  const int width = sizeHint().width();
  const int height = layout->totalHeightForWidth(width);
  setMinimumSize(width, height);
  resize(width, height);

  refreshTimer_ = new QTimer(this);
  refreshTimer_->setInterval(1000);
  connect(refreshTimer_, &QTimer::timeout, this, &PreferencesDialog::refresh);
  refresh();
}

QWidget* PreferencesDialog::buildHosts() {
  auto* box = new QGroupBox(tr("Colours go to"), this);
  auto* grid = new QGridLayout(box);
  const Preferences& preferences = logic_.preferences();
  int row = 0;
  for (const Preferences::Host& host : Preferences::hosts()) {
    auto* check = new QCheckBox(host.name, box);
    check->setObjectName(QStringLiteral("host_") + host.key);
    check->setChecked(preferences.hostEnabled(host.key));
    check->setAccessibleName(host.name);
    check->setAccessibleDescription(tr("Send new colours to %1").arg(host.name));
    const QString key = host.key;
    connect(check, &QCheckBox::toggled, this,
            [this, key](bool on) { change([&](Preferences& p) { p.setHostEnabled(key, on); }); });
    grid->addWidget(check, row, 0);
    hostBoxes_[key] = check;
    if (host.native) {
      auto* counts = new QLabel(box);
      counts->setObjectName(QStringLiteral("counts_") + host.key);
      counts->setEnabled(false);  // greyed: information, not a control
      counts->setAccessibleName(tr("Colours sent to %1").arg(host.name));
      counts->setAccessibleDescription(tr("How many colours went to %1").arg(host.name));
      grid->addWidget(counts, row, 1);
      hostCounts_[key] = counts;
    }
    ++row;
  }
  grid->setColumnStretch(1, 1);
  return box;
}

QWidget* PreferencesDialog::buildCopy() {
  auto* box = new QGroupBox(tr("Copy"), this);
  auto* form = new QFormLayout(box);
  const Preferences& preferences = logic_.preferences();
  copyBox_ = new QCheckBox(tr("Put every new colour on the clipboard"), box);
  copyBox_->setObjectName(QStringLiteral("copyEnabled"));
  copyBox_->setChecked(preferences.copyEnabled());
  copyBox_->setAccessibleName(copyBox_->text());
  copyBox_->setAccessibleDescription(tr("Copy each new colour's text"));
  connect(copyBox_, &QCheckBox::toggled, this,
          [this](bool on) { change([&](Preferences& p) { p.setCopyEnabled(on); }); });
  form->addRow(copyBox_);
  notationBox_ = new QComboBox(box);
  notationBox_->setObjectName(QStringLiteral("copyNotation"));
  notationBox_->setAccessibleName(tr("Copied notation"));
  notationBox_->setAccessibleDescription(tr("Which of the panel's texts goes to the clipboard"));
  for (const QString& notation : Preferences::notations())
    notationBox_->addItem(notationCaption(notation), notation);
  notationBox_->setCurrentIndex(notationBox_->findData(preferences.copyNotation()));
  connect(notationBox_, &QComboBox::currentIndexChanged, this, [this](int index) {
    const QString notation = notationBox_->itemData(index).toString();
    change([&](Preferences& p) { p.setCopyNotation(notation); });
  });
  form->addRow(tr("As:"), notationBox_);
  form->addRow(makeText(tr("The text goes to the clipboard exactly as the panel shows it. The "
                           "colour Tintwell starts with is not copied, nor a repeat."),
                        box));
  return box;
}

QCheckBox* PreferencesDialog::addSwitch(QWidget* box, QLayout* form, const QString& name,
                                        const QString& text, bool on,
                                        void (Preferences::*set)(bool)) {
  auto* check = new QCheckBox(text, box);
  check->setObjectName(name);
  check->setChecked(on);
  check->setAccessibleName(text);
  if (auto* group = qobject_cast<QGroupBox*>(box))
    check->setAccessibleDescription(tr("An option of %1").arg(group->title().toLower()));
  connect(check, &QCheckBox::toggled, this,
          [this, set](bool value) { change([&](Preferences& p) { (p.*set)(value); }); });
  form->addWidget(check);
  return check;
}

QWidget* PreferencesDialog::buildPicking() {
  auto* box = new QGroupBox(tr("Picking from the screen"), this);
  auto* form = new QVBoxLayout(box);
  magnifierBox_ =
      addSwitch(box, form, QStringLiteral("magnifier"), tr("Show a magnifier while picking"),
                logic_.preferences().magnifierEnabled(), &Preferences::setMagnifierEnabled);
  form->addWidget(makeText(tr("With the magnifier, the arrow keys move the pointer by one pixel "
                              "(with Shift, by ten), Enter or Space picks and Escape cancels. On "
                              "X11; a Wayland desktop shows its own picker."),
                           box));
  return box;
}

QWidget* PreferencesDialog::buildPen() {
  auto* box = new QGroupBox(tr("Pen and desktop"), this);
  auto* form = new QVBoxLayout(box);
  const Preferences& preferences = logic_.preferences();
  const auto addBox = [this, box, form](const QString& name, const QString& text, bool on,
                                        void (Preferences::*set)(bool)) {
    return addSwitch(box, form, name, text, on, set);
  };
  reconnectBox_ =
      addBox(QStringLiteral("reconnectAutomatically"),
             tr("Reconnect the pen automatically after it disconnects"),
             preferences.reconnectAutomatically(), &Preferences::setReconnectAutomatically);
  notificationsBox_ =
      addBox(QStringLiteral("notificationsEnabled"),
             tr("Desktop notifications for a low battery and a lost pen"),
             preferences.notificationsEnabled(), &Preferences::setNotificationsEnabled);
  trayBox_ = addBox(QStringLiteral("showTrayIcon"), tr("Show an icon in the tray"),
                    preferences.showTrayIcon(), &Preferences::setShowTrayIcon);
  return box;
}

QWidget* PreferencesDialog::buildHistory() {
  auto* box = new QGroupBox(tr("History and names"), this);
  auto* form = new QVBoxLayout(box);
  const Preferences& preferences = logic_.preferences();
  const auto addBox = [this, box, form](const QString& name, const QString& text, bool on,
                                        void (Preferences::*set)(bool)) {
    return addSwitch(box, form, name, text, on, set);
  };
  historyBox_ =
      addBox(QStringLiteral("historyEnabled"), tr("Keep every new colour in the history (Ctrl+H)"),
             preferences.historyEnabled(), &Preferences::setHistoryEnabled);
  recentBox_ = addBox(QStringLiteral("showRecentColors"), tr("Show recent colours on the panel"),
                      preferences.showRecentColors(), &Preferences::setShowRecentColors);
  paletteFilesBox_ = addBox(
      QStringLiteral("paletteFiles"), tr("Keep a \"Tintwell\" palette in GIMP, Inkscape and Krita"),
      preferences.paletteFilesEnabled(), &Preferences::setPaletteFilesEnabled);
  namesBox_ =
      addBox(QStringLiteral("showColorNames"), tr("Show the nearest colour name on the panel"),
             preferences.showColorNames(), &Preferences::setShowColorNames);
  auto* libraryRow = new QHBoxLayout;
  nameLibraryLabel_ = new QLabel(box);
  nameLibraryLabel_->setObjectName(QStringLiteral("nameLibrary"));
  nameLibraryLabel_->setAccessibleName(tr("Name library"));
  nameLibraryLabel_->setAccessibleDescription(tr("The library colour names come from"));
  auto* importLibrary = new QPushButton(tr("Import Library…"), box);
  importLibrary->setObjectName(QStringLiteral("importNameLibrary"));
  importLibrary->setAccessibleName(tr("Import library"));
  importLibrary->setAccessibleDescription(
      tr("Choose a file of colour names (CSV, GIMP palette or ASE)"));
  connect(importLibrary, &QPushButton::clicked, this, [this] {
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Import a Name Library"), QString(),
                                     tr("Name libraries (*.csv *.gpl *.ase);;All files (*)"));
    if (!path.isEmpty()) importNameLibrary(path);
  });
  libraryRow->addWidget(nameLibraryLabel_, 1);
  libraryRow->addWidget(importLibrary);
  form->addLayout(libraryRow);
  showNameLibrary();
  form->addWidget(makeText(tr("The history is kept on this computer only, in %1. The palette "
                              "file holds the starred colours and the newest ones, and the "
                              "applications read it when they start or reload palettes.")
                               .arg(history::defaultHistoryPath()),
                           box));
  return box;
}

QWidget* PreferencesDialog::buildReports() {
  auto* box = new QGroupBox(tr("Usage reports"), this);
  auto* layout = new QVBoxLayout(box);
  layout->addWidget(makeText(
      tr("What: two short JSON texts posted over HTTPS to %1, the ones shown below: the hex "
         "values of the colours taken from the pen and from the screen and how many of each, "
         "how many colours went to Photoshop and Illustrator, Tintwell's version, and when the "
         "session began and ended.")
          .arg(reportBase()),
      box));
  layout->addWidget(
      makeText(tr("When: every %1 while Tintwell runs, and once as it quits; only if a colour "
                  "was counted since the last report.")
                   .arg(periodText(API_Logger::sendPeriodMs())),
               box));
  reportsWaiting_ = makeText(QString(), box);
  reportsWaiting_->setObjectName(QStringLiteral("reportsWaiting"));
  reportsWaiting_->setAccessibleName(tr("Reports waiting"));
  reportsWaiting_->setAccessibleDescription(tr("What the next usage report would hold"));
  layout->addWidget(reportsWaiting_);
  reportBodies_ = new QPlainTextEdit(box);
  reportBodies_->setObjectName(QStringLiteral("reportBodies"));
  reportBodies_->setReadOnly(true);
  reportBodies_->setAccessibleName(tr("Usage report texts"));
  reportBodies_->setAccessibleDescription(tr("The texts the next usage report would send"));
  // Tab leaves the texts rather than being typed into them.
  reportBodies_->setTabChangesFocus(true);
  reportBodies_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  reportBodies_->setLineWrapMode(QPlainTextEdit::NoWrap);
  // Wide enough for the bodies' lines to show whole, which also makes the
  // texts above read as paragraphs.
  const QFontMetrics fixed(reportBodies_->font());
  reportBodies_->setMinimumSize(fixed.horizontalAdvance(QString(60, QLatin1Char('0'))),
                                fixed.lineSpacing() * 12);
  layout->addWidget(reportBodies_, 1);
  reportsBox_ = new QCheckBox(tr("Send usage reports"), box);
  reportsBox_->setObjectName(QStringLiteral("telemetryEnabled"));
  reportsBox_->setChecked(logic_.preferences().telemetryEnabled());
  reportsBox_->setAccessibleName(reportsBox_->text());
  reportsBox_->setAccessibleDescription(tr("Post the usage reports described above"));
  connect(reportsBox_, &QCheckBox::toggled, this,
          [this](bool on) { change([&](Preferences& p) { p.setTelemetryEnabled(on); }); });
  layout->addWidget(reportsBox_);
  return box;
}

void PreferencesDialog::change(const std::function<void(Preferences&)>& edit) {
  Preferences preferences = logic_.preferences();
  edit(preferences);
  logic_.applyPreferences(preferences);
  preferences.save();
  refresh();
}

QCheckBox* PreferencesDialog::hostBox(const QString& key) const {
  const auto found = hostBoxes_.find(key);
  return found == hostBoxes_.end() ? nullptr : found->second.data();
}

QLabel* PreferencesDialog::hostCounts(const QString& key) const {
  const auto found = hostCounts_.find(key);
  return found == hostCounts_.end() ? nullptr : found->second.data();
}

QString PreferencesDialog::periodText(int ms) {
  if (ms == 60000) return tr("minute");
  if (ms > 60000 && ms % 60000 == 0) return tr("%1 minutes").arg(ms / 60000);
  if (ms == 1000) return tr("second");
  if (ms % 1000 == 0) return tr("%1 seconds").arg(ms / 1000);
  return tr("%1 seconds").arg(ms / 1000.0, 0, 'f', 1);
}

void PreferencesDialog::showNameLibrary() {
  const QStringList titles = names::NameLibraries().titles();
  const int row = logic_.preferences().nameLibrary();
  nameLibraryLabel_->setText(
      tr("Names from: %1 (Ctrl+L chooses)")
          .arg(row < titles.size() ? titles[row] : tr("no library (row %1 is gone)").arg(row)));
}

bool PreferencesDialog::importNameLibrary(const QString& path) {
  QString error;
  const auto copy = names::NameLibraries().importFile(path, &error);
  if (!copy) {
    nameLibraryLabel_->setText(tr("Not imported: %1").arg(error));
    return false;
  }
  // Chosen at once: importing a library is asking for its names.
  const int row = static_cast<int>(names::NameLibraries().userFiles().indexOf(*copy)) +
                  names::NameLibraries::kFirstUserRow;
  change([row](Preferences& p) { p.setNameLibrary(row); });
  showNameLibrary();
  return true;
}

void PreferencesDialog::refresh() {
  if (nameLibraryLabel_ && !nameLibraryLabel_->text().startsWith(tr("Not imported")))
    showNameLibrary();
  // The native hosts' counts, from the dispatcher when the bridge has one.
  const std::shared_ptr<HostDispatcher> dispatcher = logic_.commander().nativeHosts();
  for (const auto& [key, label] : hostCounts_) {
    if (!label) continue;
    const std::optional<HostStats> stats = dispatcher ? dispatcher->stats(key) : std::nullopt;
    label->setText(stats ? tr("pushed %1, confirmed %2, failed %3")
                               .arg(stats->pushed)
                               .arg(stats->confirmed)
                               .arg(stats->failed)
                         : QString());
  }

  const bool sending = logic_.apiLogger().isSendingEnabled();
  const std::optional<API_Logger::PendingReport> pending = logic_.apiLogger().pendingReport();
  if (!sending) {
    reportsWaiting_->setText(
        tr("Usage reports are off: nothing is sent. What is counted "
           "meanwhile is dropped when they are turned on again."));
  } else if (!pending || pending->colors == 0) {
    reportsWaiting_->setText(
        tr("Waiting to be sent: nothing (no colour counted since the last "
           "report)."));
  } else {
    reportsWaiting_->setText(
        pending->colors == 1
            ? tr("Waiting to be sent: 2 reports, with 1 colour.")
            : tr("Waiting to be sent: 2 reports, with %1 colours.").arg(pending->colors));
  }
  QString bodies;
  if (sending && pending) {
    const QString base = reportBase();
    bodies = QStringLiteral("POST ") + base + QStringLiteral("/api/color_usage\n") +
             QString::fromUtf8(pending->colorBody) + QStringLiteral("\n\nPOST ") + base +
             QStringLiteral("/api/app_usage\n") + QString::fromUtf8(pending->applicationBody);
  }
  if (reportBodies_->toPlainText() != bodies) {
    // Refreshed every second (the end stamp moves): keep the reader's place.
    const int at = reportBodies_->verticalScrollBar()->value();
    reportBodies_->setPlainText(bodies);
    reportBodies_->verticalScrollBar()->setValue(at);
  }
  reportBodies_->setEnabled(sending);
}

void PreferencesDialog::showEvent(QShowEvent* event) {
  refresh();
  refreshTimer_->start();
  QDialog::showEvent(event);
}

void PreferencesDialog::hideEvent(QHideEvent* event) {
  refreshTimer_->stop();
  QDialog::hideEvent(event);
}

}  // namespace tw
