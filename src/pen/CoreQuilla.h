#pragma once

#include <QString>
#include <QtGlobal>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>

#include "pen/CentralManager.h"

class QThread;

namespace tw::pen {

class Mailbox;

// The user-defaults store: QSettings, organisation "Orlo", application
// "Tintwell". Each access opens its own QSettings, which Qt allows from any thread.
class UserDefaults {
 public:
  std::optional<QString> string(const QString& key) const;
  void setObject(const QString& value, const QString& key);
};

// The pen link: finds the pen, connects to it, remembers it, walks its GATT
// layout and turns its colour packets into "Notification_New_Color" posts.
// Bluetooth callbacks run on the link's own thread "Orlo.Tintwell"; the delayed
// fallback step and getBatteryLevel run on the main thread. The members shared
// between the two are guarded by one mutex that is never held across a call
// into the central or a post.
class CoreQuilla : public CentralDelegate, public PeripheralDelegate {
 public:
  // Does nothing with Bluetooth yet. Must be made on the main thread.
  explicit CoreQuilla(CentralFactory factory = platformCentralFactory());
  // Lets go of the references only: the pen's connection is never cancelled.
  ~CoreQuilla() override;
  CoreQuilla(const CoreQuilla&) = delete;
  CoreQuilla& operator=(const CoreQuilla&) = delete;

  // What the link is doing, as the central and the pen last reported it.
  enum class LinkState {
    Starting,      // no report from the central yet, or it is resetting
    Off,           // the adapter is powered off
    NoAdapter,     // no Bluetooth adapter (or no BlueZ)
    NotAllowed,    // the system refuses Bluetooth to this user
    Searching,     // powered on, looking for the pen
    Connecting,    // a connect request is out
    Connected,     // the pen is connected
    Disconnected,  // the pen was connected and went away
  };
  LinkState linkState() const;
  // Called after every change of linkState(), on the thread that made it (the
  // queue thread, or the main thread for the delayed step and reconnect), with
  // no lock held. Set before setupCentralManager; never changed after.
  void setLinkStateListener(std::function<void()> listener);

  // Starts the connection procedure again (saved pen, then after the delay the
  // system's pen or a scan), as a powered-on report does. Does nothing and
  // answers false before setupCentralManager, while the adapter is not
  // powered on, or while the pen is connected or a connect request is out.
  // Any thread.
  bool reconnect();

  // Prints "init CoreQuilla ", starts the queue thread and creates the central;
  // its first state report starts the connection procedure. Call once.
  void setupCentralManager();

  // The level from the previous battery read (0 while none is known), and starts
  // the read the next call reports. Main thread.
  qint64 getBatteryLevel();

  // Snapshots of the guarded members, for the panel and for tests.
  PeripheralPtr currentPeripheralQuilla() const;
  CharacteristicPtr currentBatteryCharacteristic() const;
  std::optional<qint64> currentBatteryLevel() const;
  // What the last getBatteryLevel call answered, when the pen had given a
  // level by then (its 0 otherwise means "not known", not "empty").
  std::optional<qint64> lastReadBatteryLevel() const;
  // The queue thread, null before setupCentralManager.
  QThread* queueThread() const;

  // CentralDelegate
  void centralManagerDidUpdateState(CentralManager& central) override;
  void centralManagerDidDiscoverPeripheral(CentralManager& central,
                                           const PeripheralPtr& peripheral) override;
  void centralManagerDidConnectPeripheral(CentralManager& central,
                                          const PeripheralPtr& peripheral) override;
  void centralManagerDidDisconnectPeripheral(CentralManager& central,
                                             const PeripheralPtr& peripheral) override;
  // PeripheralDelegate
  void peripheralDidDiscoverServices(const PeripheralPtr& peripheral) override;
  void peripheralDidDiscoverCharacteristics(const PeripheralPtr& peripheral,
                                            const ServicePtr& service) override;
  void peripheralDidUpdateValue(const PeripheralPtr& peripheral,
                                const CharacteristicPtr& characteristic) override;

 private:
  void connectionProcedure(CentralManager& central);
  void fallbackConnect(CentralManager* central);
  static void logPeripheralState(int state);
  static void decodeColorPacket(const CharacteristicPtr& characteristic);
  CentralManager* manager() const;
  void setPeripheralQuilla(const PeripheralPtr& peripheral);
  // Unless `fresh` (a powered-on report, a reconnect), Searching and Connecting
  // only replace Searching, Connecting and Disconnected: the delayed step on
  // the main thread may decide just as the queue thread reports the
  // connection, or after the adapter was switched off.
  void setLinkState(LinkState state, bool fresh = false);
  static LinkState stateOfCentral(int centralState);

  CentralFactory factory_;
  mutable std::mutex mutex_;

  // Guarded by mutex_.
  std::unique_ptr<CentralManager> centralManager;
  PeripheralPtr peripheralQuilla;
  CharacteristicPtr batteryCBCharacteristic;
  std::optional<qint64> batteryLevel;
  LinkState linkState_ = LinkState::Starting;
  std::optional<qint64> readBatteryLevel_;

  std::function<void()> linkStateListener_;

  UserDefaults defaults;
  const QString keyOfDeviceUUID = QStringLiteral("connectedQuillaID");
  // Declared and never set; nothing uses it.
  std::optional<int> observer;

  QThread* queue_ = nullptr;
  // Made ready by the queue thread as the last thing it does for us: Qt's own
  // wait for a thread's end is invisible to ThreadSanitizer, this is not.
  std::future<void> queueEnded_;
  // Lives on the main thread: the fallback step runs through it.
  Mailbox* mainQueue_ = nullptr;
};

}  // namespace tw::pen
