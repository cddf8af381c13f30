#pragma once

#include <QStringList>
#include <map>
#include <memory>
#include <mutex>

#include "pen/CentralManager.h"

namespace tw::pen {

class Mailbox;
class SimPeripheral;

// A deterministic in-process central for unit tests. The test drives the radio
// side (state, advertisements, notifications, disconnections) with the control
// calls below, from any thread; the link's calls are recorded as text lines.
// Reports reach the delegate on the queue thread, as from a real central.
class SimulatedCentral : public CentralManager {
 public:
  struct ServiceConfig {
    QUuid uuid;
    QList<QUuid> characteristics;
  };
  struct PeripheralConfig {
    QUuid identifier;
    std::optional<QString> name;
    bool known = true;             // found by retrievePeripheralsWithIdentifiers
    bool systemConnected = false;  // connected to the system before the link asks
    bool connectCompletes = true;  // false: a connect request stays pending
    QList<QUuid> advertisedServices;
    QList<ServiceConfig> services;
  };

  // Runs `prepare` (to add peripherals), then reports `initialState` once the
  // queue runs.
  SimulatedCentral(CentralDelegate* delegate, QThread* queue, int initialState,
                   const std::function<void(SimulatedCentral&)>& prepare = {});
  ~SimulatedCentral() override;

  // Controls.
  PeripheralPtr addPeripheral(const PeripheralConfig& config);
  void setState(int state);  // a new state report
  // Reported as a discovery when a scan that admits it runs.
  void advertise(const PeripheralPtr& peripheral);
  // Several advertisements arriving at once, all before any stop can act.
  void advertise(const QList<PeripheralPtr>& peripherals);
  // Sets the characteristic's value and reports it, as a notification.
  void notify(const PeripheralPtr& peripheral, const QUuid& characteristic,
              const QByteArray& value);
  // The value the next read will return.
  void setRemoteValue(const PeripheralPtr& peripheral, const QUuid& characteristic,
                      const std::optional<QByteArray>& value);
  // While held, read requests wait for answerReads(), as over a slow radio.
  void holdReads(bool hold);
  void answerReads();
  // Makes the next service or characteristic discovery fail (absent list).
  void failNextDiscovery();
  void disconnect(const PeripheralPtr& peripheral);
  // Completes a connect that was left pending.
  void completeConnect(const PeripheralPtr& peripheral);
  QStringList calls() const;
  // For each recorded call, the thread it came from: "main" or the thread's name.
  QStringList callThreads() const;
  // Runs `work` on the queue thread after everything posted before it.
  void afterPending(std::function<void()> work);

  // CentralManager
  int state() const override;
  QList<PeripheralPtr> retrievePeripheralsWithIdentifiers(const QList<QUuid>& identifiers) override;
  QList<PeripheralPtr> retrieveConnectedPeripheralsWithServices(
      const QList<QUuid>& services) override;
  void scanForPeripheralsWithServices(const std::optional<QList<QUuid>>& services) override;
  void stopScan() override;
  void connectPeripheral(const PeripheralPtr& peripheral) override;

 private:
  friend class SimPeripheral;
  void record(const QString& call);
  bool takeFailure();
  // Answers now, or keeps the answer for answerReads() while reads are held.
  void answerRead(std::function<void()> answer);
  void reportConnected(const std::shared_ptr<SimPeripheral>& peripheral);

  CentralDelegate* delegate_;
  Mailbox* queue_;
  mutable std::mutex mutex_;
  int state_;
  std::optional<std::optional<QList<QUuid>>> scan_;  // absent: not scanning
  bool failNextDiscovery_ = false;
  bool holdReads_ = false;
  std::vector<std::function<void()>> heldReads_;
  QStringList calls_;
  QStringList callThreads_;
  std::vector<std::shared_ptr<SimPeripheral>> peripherals_;
};

}  // namespace tw::pen
