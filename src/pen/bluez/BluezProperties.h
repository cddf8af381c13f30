#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <QVariantMap>
#include <QtGlobal>
#include <optional>

class QDBusArgument;
class QDBusMessage;

namespace tw::pen::bluez {

// How the BlueZ backend reads what arrives over D-Bus: property maps, object
// lists, signals and replies. Nothing here trusts the bus: a value of another
// type than BlueZ documents reads as absent, and a message of another
// signature (or a reply that is an error) reads as nothing at all.

// Interface name -> its properties, for one object.
using Interfaces = QMap<QString, QVariantMap>;
// Object path -> its interfaces: the shape of GetManagedObjects.
using ObjectTree = QMap<QString, Interfaces>;

// Only fully typed values count; anything else reads as absent (or empty).
std::optional<bool> boolProp(const QVariantMap& props, const QString& key);
std::optional<QString> stringProp(const QVariantMap& props, const QString& key);
QStringList stringListProp(const QVariantMap& props, const QString& key);
std::optional<QByteArray> bytesProp(const QVariantMap& props, const QString& key);
std::optional<quint8> byteProp(const QVariantMap& props, const QString& key);

// True when `path` is a direct child of `parent` ("/a/b" of "/a").
bool isChildOf(const QString& path, const QString& parent);

// Drops properties whose type is not the one BlueZ documents, so a malformed
// value never replaces a good one. Other keys pass whatever their type.
QVariantMap wellTyped(const QVariantMap& props);

// The metatype id BlueZ documents for a property this backend reads, or
// nothing for a property it does not look at.
std::optional<int> documentedType(const QString& key);

// a{sa{sv}}, already checked by signature; every map passed through wellTyped.
Interfaces readInterfaces(const QDBusArgument& arg);

// The "UUID" property as a Bluetooth UUID; null when absent or not one.
QUuid uuidOf(const QVariantMap& props);

// ObjectManager.GetManagedObjects: the tree, or nothing for an error or a
// reply of another signature.
std::optional<ObjectTree> managedObjectsFromReply(const QDBusMessage& reply);

struct AddedInterfaces {
  QString path;
  Interfaces interfaces;
};
// ObjectManager.InterfacesAdded (oa{sa{sv}}).
std::optional<AddedInterfaces> interfacesAddedFrom(const QDBusMessage& signal);

struct RemovedInterfaces {
  QString path;
  QStringList interfaces;
};
// ObjectManager.InterfacesRemoved (oas).
std::optional<RemovedInterfaces> interfacesRemovedFrom(const QDBusMessage& signal);

struct ChangedProperties {
  QString path;  // the object's, from the message itself
  QString interface;
  QVariantMap changed;  // through wellTyped
  QStringList invalidated;
};
// Properties.PropertiesChanged (sa{sv}as).
std::optional<ChangedProperties> propertiesChangedFrom(const QDBusMessage& signal);

// Properties.Get of Battery1.Percentage: the level when the reply holds a byte.
std::optional<quint8> percentageFromReply(const QDBusMessage& reply);

// GattCharacteristic1.ReadValue: the value when the reply holds bytes.
std::optional<QByteArray> valueFromReadReply(const QDBusMessage& reply);

}  // namespace tw::pen::bluez
