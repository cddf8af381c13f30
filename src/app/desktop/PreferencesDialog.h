#pragma once

#include <QDialog>
#include <QPointer>
#include <functional>
#include <map>

class QCheckBox;
class QComboBox;
class QLabel;
class QPlainTextEdit;
class QTimer;

namespace tw {

class PanelLogic;
class Preferences;

// The preferences window: which design applications receive colours (with
// the native hosts' push counts), the copy option and its notation, and the
// usage reports: what they hold (the bodies a send would post now), when they
// go, what is waiting, and their switch. Every change applies to the panel at
// once and is saved. Not modal; the panel keeps one.
class PreferencesDialog : public QDialog {
  Q_OBJECT

 public:
  explicit PreferencesDialog(PanelLogic& logic, QWidget* parent = nullptr);

  // Reads the counts and the waiting reports again (done every second while
  // the window shows).
  void refresh();

  // The controls, for the panel's tests; named as their object names.
  QCheckBox* hostBox(const QString& key) const;
  QLabel* hostCounts(const QString& key) const;
  QCheckBox* copyBox() const { return copyBox_; }
  QComboBox* notationBox() const { return notationBox_; }
  QCheckBox* reportsBox() const { return reportsBox_; }
  QCheckBox* historyBox() const { return historyBox_; }
  QCheckBox* recentBox() const { return recentBox_; }
  QCheckBox* paletteFilesBox() const { return paletteFilesBox_; }
  QCheckBox* namesBox() const { return namesBox_; }
  QCheckBox* magnifierBox() const { return magnifierBox_; }
  QCheckBox* reconnectBox() const { return reconnectBox_; }
  QCheckBox* notificationsBox() const { return notificationsBox_; }
  QCheckBox* trayBox() const { return trayBox_; }
  // "Names from: <library>", the active name library.
  QLabel* nameLibraryLabel() const { return nameLibraryLabel_; }
  // Copies a name library (.csv, .gpl, .ase) among the user's and makes it
  // the active one; false, with the reason shown, when it is refused.
  bool importNameLibrary(const QString& path);
  QLabel* reportsWaiting() const { return reportsWaiting_; }
  QPlainTextEdit* reportBodies() const { return reportBodies_; }

  // "10 minutes", "30 seconds": how a period reads in the window.
  static QString periodText(int ms);

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  QWidget* buildHosts();
  QWidget* buildCopy();
  QWidget* buildHistory();
  // A check box for one of the preferences' switches, added to `form`.
  QCheckBox* addSwitch(QWidget* box, QLayout* form, const QString& name, const QString& text,
                       bool on, void (Preferences::*set)(bool));
  QWidget* buildPicking();
  QWidget* buildPen();
  void showNameLibrary();
  QWidget* buildReports();
  // Edits the panel's preferences, applies them and saves them.
  void change(const std::function<void(Preferences&)>& edit);

  PanelLogic& logic_;
  std::map<QString, QPointer<QCheckBox>> hostBoxes_;
  std::map<QString, QPointer<QLabel>> hostCounts_;
  QCheckBox* copyBox_ = nullptr;
  QComboBox* notationBox_ = nullptr;
  QCheckBox* reconnectBox_ = nullptr;
  QCheckBox* notificationsBox_ = nullptr;
  QCheckBox* trayBox_ = nullptr;
  QCheckBox* reportsBox_ = nullptr;
  QCheckBox* historyBox_ = nullptr;
  QCheckBox* recentBox_ = nullptr;
  QCheckBox* paletteFilesBox_ = nullptr;
  QCheckBox* namesBox_ = nullptr;
  QCheckBox* magnifierBox_ = nullptr;
  QLabel* nameLibraryLabel_ = nullptr;
  QLabel* reportsWaiting_ = nullptr;
  QPlainTextEdit* reportBodies_ = nullptr;
  QTimer* refreshTimer_ = nullptr;
};

}  // namespace tw
