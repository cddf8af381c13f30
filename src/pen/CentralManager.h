#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUuid>
#include <functional>
#include <memory>
#include <optional>

class QThread;

namespace tw::pen {

// The Bluetooth LE central as the pen link needs it, and nothing more.
//
// Contracts every backend keeps:
// - Every operation of CentralManager, Peripheral, Service and Characteristic may
//   be called from any thread (the link calls from its own queue thread and from
//   the main thread) and never blocks on the radio or on a bus round trip.
//   Queries answer from what the backend already knows.
// - Every delegate entry runs on the queue thread given at creation, one at a
//   time, never inside an operation call (operations only start work).
// - The same peripheral, service or characteristic is always the same object, so
//   pointers compare by identity.
// - Errors are not reported: a failed connect leaves the peripheral disconnected
//   without a callback; a failed service or characteristic discovery reports an
//   absent list.

class Characteristic {
 public:
  virtual ~Characteristic() = default;
  virtual QUuid uuid() const = 0;
  // A one-line human description, used in log lines.
  virtual QString description() const = 0;
  // The last value read or notified; absent before the first one.
  virtual std::optional<QByteArray> value() const = 0;
};
using CharacteristicPtr = std::shared_ptr<Characteristic>;

class Service {
 public:
  virtual ~Service() = default;
  virtual QUuid uuid() const = 0;
  virtual QString description() const = 0;
  // Absent until characteristics were discovered (or when that failed).
  virtual std::optional<QList<CharacteristicPtr>> characteristics() const = 0;
};
using ServicePtr = std::shared_ptr<Service>;

class Peripheral;
using PeripheralPtr = std::shared_ptr<Peripheral>;

// Receives the per-peripheral answers, on the queue thread.
class PeripheralDelegate {
 public:
  virtual ~PeripheralDelegate() = default;
  virtual void peripheralDidDiscoverServices(const PeripheralPtr& peripheral) = 0;
  virtual void peripheralDidDiscoverCharacteristics(const PeripheralPtr& peripheral,
                                                    const ServicePtr& service) = 0;
  // A notification or a read answer changed the characteristic's stored value.
  virtual void peripheralDidUpdateValue(const PeripheralPtr& peripheral,
                                        const CharacteristicPtr& characteristic) = 0;
};

class Peripheral {
 public:
  // Peripheral state codes.
  static constexpr int kDisconnected = 0;
  static constexpr int kConnecting = 1;
  static constexpr int kConnected = 2;
  static constexpr int kDisconnecting = 3;

  virtual ~Peripheral() = default;
  // Absent when the peripheral never told its name.
  virtual std::optional<QString> name() const = 0;
  virtual QUuid identifier() const = 0;
  // This central's view: connecting while a connect request is out, connected
  // after didConnectPeripheral until the link goes down.
  virtual int state() const = 0;
  // Per-peripheral answers go to this delegate; nullptr drops them.
  virtual void setDelegate(PeripheralDelegate* delegate) = 0;
  // All services, no filter. Answer: peripheralDidDiscoverServices.
  virtual void discoverServices() = 0;
  // Absent until services were discovered (or when that failed).
  virtual std::optional<QList<ServicePtr>> services() const = 0;
  // All characteristics of the service, no filter. Answer:
  // peripheralDidDiscoverCharacteristics.
  virtual void discoverCharacteristics(const ServicePtr& service) = 0;
  // Values then arrive as peripheralDidUpdateValue.
  virtual void setNotifyValue(bool enabled, const CharacteristicPtr& characteristic) = 0;
  // Starts a read; the answer refreshes the stored value (and is reported as
  // peripheralDidUpdateValue).
  virtual void readValue(const CharacteristicPtr& characteristic) = 0;
};

class CentralManager;

// Receives the central's reports, on the queue thread.
class CentralDelegate {
 public:
  virtual ~CentralDelegate() = default;
  // Once after creation, and at every later change of the radio's situation.
  virtual void centralManagerDidUpdateState(CentralManager& central) = 0;
  // A peripheral seen while a scan runs.
  virtual void centralManagerDidDiscoverPeripheral(CentralManager& central,
                                                   const PeripheralPtr& peripheral) = 0;
  virtual void centralManagerDidConnectPeripheral(CentralManager& central,
                                                  const PeripheralPtr& peripheral) = 0;
  // Only for peripherals this central had reported connected.
  virtual void centralManagerDidDisconnectPeripheral(CentralManager& central,
                                                     const PeripheralPtr& peripheral) = 0;
};

class CentralManager {
 public:
  // Manager state codes.
  static constexpr int kUnknown = 0;
  static constexpr int kResetting = 1;
  static constexpr int kUnsupported = 2;
  static constexpr int kUnauthorized = 3;
  static constexpr int kPoweredOff = 4;
  static constexpr int kPoweredOn = 5;

  virtual ~CentralManager() = default;
  virtual int state() const = 0;
  // Peripherals the system knows with one of these identifiers.
  virtual QList<PeripheralPtr> retrievePeripheralsWithIdentifiers(
      const QList<QUuid>& identifiers) = 0;
  // Peripherals connected to the system that offer one of these services.
  virtual QList<PeripheralPtr> retrieveConnectedPeripheralsWithServices(
      const QList<QUuid>& services) = 0;
  // Starts (or replaces) a scan. Absent list: every peripheral; otherwise only
  // peripherals advertising one of the services.
  virtual void scanForPeripheralsWithServices(const std::optional<QList<QUuid>>& services) = 0;
  virtual void stopScan() = 0;
  // Never times out by itself. Answer: centralManagerDidConnectPeripheral.
  virtual void connectPeripheral(const PeripheralPtr& peripheral) = 0;
};

// Makes the platform central bound to a delegate and a queue thread (running
// its own event loop). The first state report follows on that thread.
using CentralFactory =
    std::function<std::unique_ptr<CentralManager>(CentralDelegate* delegate, QThread* queue)>;

// The build's platform central (BlueZ over the system bus on Linux).
CentralFactory platformCentralFactory();

}  // namespace tw::pen
