#include "pen/bluez/BluezCentral.h"

#include <QThread>
#include <utility>

#include "pen/Mailbox.h"
#include "pen/bluez/BluezShared.h"
#include "pen/bluez/BluezWorker.h"

namespace tw::pen {

using bluez::BluezPeripheral;
using bluez::BluezWorker;

BluezCentral::BluezCentral(CentralDelegate* delegate, QThread* queue)
    : shared_(std::make_shared<bluez::BluezShared>()) {
  worker_ = new BluezWorker(shared_, delegate, this);
  auto* mailbox = new Mailbox(worker_);
  worker_->moveToThread(queue);
  std::lock_guard lock(shared_->mutex);
  shared_->mailbox = mailbox;
  shared_->worker = worker_;
  shared_->post([](BluezWorker& w) { w.start(); });
}

BluezCentral::~BluezCentral() {
  {
    std::lock_guard lock(shared_->mutex);
    shared_->mailbox = nullptr;
    shared_->worker = nullptr;
    // The handles point back at the shared state: let go of them here so the
    // last handle still held elsewhere frees everything.
    shared_->peripherals.clear();
    shared_->services.clear();
    shared_->characteristics.clear();
    shared_->links.clear();
    shared_->discoveredChars.clear();
  }
  // The queue thread has ended by now (its owner stops it first), or the
  // deletion is handed to it.
  if (worker_->thread() == QThread::currentThread() || worker_->thread() == nullptr ||
      !worker_->thread()->isRunning())
    delete worker_;
  else
    worker_->deleteLater();
}

int BluezCentral::state() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->mirror.stateCode();
}

QList<PeripheralPtr> BluezCentral::retrievePeripheralsWithIdentifiers(
    const QList<QUuid>& identifiers) {
  QList<PeripheralPtr> found;
  std::lock_guard lock(shared_->mutex);
  for (const QString& path : shared_->mirror.devicePaths()) {
    const QUuid id = shared_->mirror.identifierOf(path);
    if (!id.isNull() && identifiers.contains(id)) found.append(shared_->peripheralFor(path));
  }
  return found;
}

QList<PeripheralPtr> BluezCentral::retrieveConnectedPeripheralsWithServices(
    const QList<QUuid>& services) {
  QList<PeripheralPtr> found;
  std::lock_guard lock(shared_->mutex);
  const bluez::ObjectMirror& mirror = shared_->mirror;
  for (const QString& path : mirror.devicePaths())
    if (bluez::boolProp(mirror.device(path), QStringLiteral("Connected")).value_or(false) &&
        mirror.offersAny(path, services))
      found.append(shared_->peripheralFor(path));
  return found;
}

void BluezCentral::scanForPeripheralsWithServices(const std::optional<QList<QUuid>>& services) {
  std::lock_guard lock(shared_->mutex);
  if (shared_->mirror.stateCode() != kPoweredOn) return;
  shared_->scan.filter = services;
  ++shared_->scan.generation;
  shared_->scan.discoveryStarted = true;
  shared_->post([services](BluezWorker& w) { w.scan(services); });
}

void BluezCentral::stopScan() {
  std::lock_guard lock(shared_->mutex);
  if (!std::exchange(shared_->scan.discoveryStarted, false)) return;
  const quint64 generation = shared_->scan.generation;
  shared_->post([generation](BluezWorker& w) { w.stopScan(generation); });
}

void BluezCentral::connectPeripheral(const PeripheralPtr& peripheral) {
  auto p = std::static_pointer_cast<BluezPeripheral>(peripheral);
  std::lock_guard lock(shared_->mutex);
  shared_->links[p->path()].connectRequested();
  shared_->post([p](BluezWorker& w) { w.connectDevice(p); });
}

QUuid BluezCentral::identifierForAddress(const QString& address) {
  return bluez::identifierForAddress(address);
}

}  // namespace tw::pen
