#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <memory>

#include "pen/bluez/BluezShared.h"

class QDBusServiceWatcher;

namespace tw::pen::bluez {

// Lives on the queue thread and does all bus traffic there: it feeds the
// mirror and the device links from BlueZ's signals, calls BlueZ for the
// central's operations, and reports to the delegates (never with the mutex
// held).
class BluezWorker : public QObject {
  Q_OBJECT
 public:
  BluezWorker(std::shared_ptr<BluezShared> shared, CentralDelegate* delegate,
              CentralManager* central);
  ~BluezWorker() override;

  void start();

  // Operations, on the queue thread.
  void scan(const std::optional<QList<QUuid>>& services);
  void stopScan(quint64 generation);
  void connectDevice(const std::shared_ptr<BluezPeripheral>& peripheral);
  // Reports the services when the link asked for them and they are complete.
  void evaluateServices(const QString& devicePath);
  void discoverCharacteristics(const std::shared_ptr<BluezPeripheral>& peripheral,
                               const ServicePtr& service);
  void startNotify(const QString& path);
  void read(const std::shared_ptr<BluezPeripheral>& peripheral,
            const CharacteristicPtr& characteristic);

 public Q_SLOTS:
  void onInterfacesAdded(const QDBusMessage& message);
  void onInterfacesRemoved(const QDBusMessage& message);
  void onPropertiesChanged(const QDBusMessage& message);

 private:
  void loadObjects();
  void onVanished();
  // Mutex held. Ends this central's connection to the device, if it had one.
  std::shared_ptr<BluezPeripheral> takeConnected(const QString& path);
  void reportState();
  void reportDiscovery(const QString& path);
  void reportValue(const std::shared_ptr<BluezPeripheral>& peripheral,
                   const CharacteristicPtr& characteristic);
  void storeAndReport(const std::shared_ptr<BluezPeripheral>& peripheral,
                      const CharacteristicPtr& characteristic, const QByteArray& value);
  QString adapterPath();

  std::shared_ptr<BluezShared> shared_;
  CentralDelegate* delegate_;
  CentralManager* central_;
  std::unique_ptr<QDBusConnection> bus_;
  QDBusServiceWatcher* watcher_ = nullptr;
};

}  // namespace tw::pen::bluez
