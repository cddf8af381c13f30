#pragma once

#include <QByteArray>
#include <QDBusConnection>
#include <QList>
#include <QString>
#include <QUuid>
#include <QVariantList>
#include <functional>
#include <optional>

#include "pen/bluez/BluezProperties.h"

class QDBusMessage;
class QObject;

namespace tw::pen::bluez {

// BlueZ's bus name, and the two freedesktop interfaces its objects carry.
extern const QString kBluezService;
extern const QString kObjectManagerInterface;
extern const QString kPropertiesInterface;

// Thin wrappers, one per BlueZ interface this backend calls. Every call is
// asynchronous: it returns at once, and its answer (already read through
// BluezProperties, so nothing malformed gets through) arrives on the thread of
// `context`, which also owns the pending call.
class BluezObject {
 public:
  BluezObject(QDBusConnection& bus, QString path, QObject* context)
      : bus_(bus), path_(std::move(path)), context_(context) {}

 protected:
  // `timeout` in milliseconds; -1 is D-Bus's default.
  void call(const QString& interface, const QString& method, const QVariantList& args,
            std::function<void(const QDBusMessage&)> done = {}, int timeout = -1) const;

 private:
  QDBusConnection& bus_;
  const QString path_;
  QObject* const context_;
};

// org.freedesktop.DBus.ObjectManager of org.bluez, at "/".
class ObjectManager : public BluezObject {
 public:
  ObjectManager(QDBusConnection& bus, QObject* context);
  // The tree, or nothing for an error or an answer of another shape.
  void getManagedObjects(std::function<void(std::optional<ObjectTree>)> done) const;
};

class Adapter1 : public BluezObject {
 public:
  using BluezObject::BluezObject;
  // Low energy only; only devices advertising one of `services` when given.
  void setDiscoveryFilter(const std::optional<QList<QUuid>>& services) const;
  void startDiscovery() const;
  // `done` runs when BlueZ has answered, whatever the answer.
  void stopDiscovery(std::function<void()> done) const;
};

class Device1 : public BluezObject {
 public:
  using BluezObject::BluezObject;
  // Never times out: a pen out of reach connects when it comes back.
  // `done` tells whether BlueZ answered with success.
  void connect(std::function<void(bool succeeded)> done) const;
};

class GattCharacteristic1 : public BluezObject {
 public:
  using BluezObject::BluezObject;
  // Values then arrive as changes of the Value property.
  void startNotify() const;
  // `done` runs only for an answer that holds bytes.
  void readValue(std::function<void(const QByteArray&)> done) const;
};

class Battery1 : public BluezObject {
 public:
  using BluezObject::BluezObject;
  // Percentage, through Properties.Get; `done` runs only for a byte.
  void percentage(std::function<void(quint8)> done) const;
};

}  // namespace tw::pen::bluez
