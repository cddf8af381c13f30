#include "pen/bluez/BluezProperties.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QHash>

#include "pen/BluetoothUuid.h"

namespace tw::pen::bluez {

namespace {

// The value under `key` when it holds exactly a T (no conversion).
template <typename T>
std::optional<T> typedProp(const QVariantMap& props, const QString& key) {
  const auto it = props.constFind(key);
  if (it == props.constEnd() || it->metaType() != QMetaType::fromType<T>()) return std::nullopt;
  return it->template value<T>();
}

}  // namespace

std::optional<bool> boolProp(const QVariantMap& props, const QString& key) {
  return typedProp<bool>(props, key);
}

std::optional<QString> stringProp(const QVariantMap& props, const QString& key) {
  return typedProp<QString>(props, key);
}

QStringList stringListProp(const QVariantMap& props, const QString& key) {
  return typedProp<QStringList>(props, key).value_or(QStringList());
}

std::optional<QByteArray> bytesProp(const QVariantMap& props, const QString& key) {
  return typedProp<QByteArray>(props, key);
}

std::optional<quint8> byteProp(const QVariantMap& props, const QString& key) {
  return typedProp<quint8>(props, key);
}

bool isChildOf(const QString& path, const QString& parent) {
  return path.size() > parent.size() + 1 && path.startsWith(parent) &&
         path.at(parent.size()) == QLatin1Char('/') &&
         path.indexOf(QLatin1Char('/'), parent.size() + 1) < 0;
}

std::optional<int> documentedType(const QString& key) {
  static const QHash<QString, int> expected{{QStringLiteral("Powered"), QMetaType::Bool},
                                            {QStringLiteral("Connected"), QMetaType::Bool},
                                            {QStringLiteral("ServicesResolved"), QMetaType::Bool},
                                            {QStringLiteral("Address"), QMetaType::QString},
                                            {QStringLiteral("Name"), QMetaType::QString},
                                            {QStringLiteral("UUID"), QMetaType::QString},
                                            {QStringLiteral("UUIDs"), QMetaType::QStringList},
                                            {QStringLiteral("Value"), QMetaType::QByteArray},
                                            {QStringLiteral("Percentage"), QMetaType::UChar}};
  const auto type = expected.constFind(key);
  if (type == expected.constEnd()) return std::nullopt;
  return *type;
}

QVariantMap wellTyped(const QVariantMap& props) {
  QVariantMap result;
  for (auto it = props.constBegin(); it != props.constEnd(); ++it) {
    const std::optional<int> type = documentedType(it.key());
    if (!type || it->metaType().id() == *type) result.insert(it.key(), *it);
  }
  return result;
}

Interfaces readInterfaces(const QDBusArgument& arg) {
  Interfaces result;
  arg.beginMap();
  while (!arg.atEnd()) {
    QString name;
    QVariantMap props;
    arg.beginMapEntry();
    arg >> name >> props;
    arg.endMapEntry();
    result.insert(name, wellTyped(props));
  }
  arg.endMap();
  return result;
}

QUuid uuidOf(const QVariantMap& props) {
  const std::optional<QString> text = stringProp(props, QStringLiteral("UUID"));
  return text ? parseBluetoothUuid(*text) : QUuid();
}

std::optional<ObjectTree> managedObjectsFromReply(const QDBusMessage& reply) {
  if (reply.type() != QDBusMessage::ReplyMessage ||
      reply.signature() != QLatin1String("a{oa{sa{sv}}}"))
    return std::nullopt;
  ObjectTree objects;
  const QDBusArgument arg = reply.arguments().value(0).value<QDBusArgument>();
  arg.beginMap();
  while (!arg.atEnd()) {
    QDBusObjectPath path;
    arg.beginMapEntry();
    arg >> path;
    objects.insert(path.path(), readInterfaces(arg));
    arg.endMapEntry();
  }
  arg.endMap();
  return objects;
}

std::optional<AddedInterfaces> interfacesAddedFrom(const QDBusMessage& signal) {
  if (signal.signature() != QLatin1String("oa{sa{sv}}")) return std::nullopt;
  AddedInterfaces added;
  added.path = signal.arguments().value(0).value<QDBusObjectPath>().path();
  added.interfaces = readInterfaces(signal.arguments().value(1).value<QDBusArgument>());
  return added;
}

std::optional<RemovedInterfaces> interfacesRemovedFrom(const QDBusMessage& signal) {
  if (signal.signature() != QLatin1String("oas")) return std::nullopt;
  RemovedInterfaces removed;
  removed.path = signal.arguments().value(0).value<QDBusObjectPath>().path();
  removed.interfaces = signal.arguments().value(1).toStringList();
  return removed;
}

std::optional<ChangedProperties> propertiesChangedFrom(const QDBusMessage& signal) {
  if (signal.signature() != QLatin1String("sa{sv}as")) return std::nullopt;
  ChangedProperties properties;
  properties.path = signal.path();
  properties.interface = signal.arguments().value(0).toString();
  properties.changed = wellTyped(qdbus_cast<QVariantMap>(signal.arguments().value(1)));
  properties.invalidated = signal.arguments().value(2).toStringList();
  return properties;
}

std::optional<quint8> percentageFromReply(const QDBusMessage& reply) {
  if (reply.type() != QDBusMessage::ReplyMessage || reply.signature() != QLatin1String("v"))
    return std::nullopt;
  const QVariant value = reply.arguments().value(0).value<QDBusVariant>().variant();
  if (value.metaType().id() != QMetaType::UChar) return std::nullopt;
  return static_cast<quint8>(value.value<uchar>());
}

std::optional<QByteArray> valueFromReadReply(const QDBusMessage& reply) {
  if (reply.type() != QDBusMessage::ReplyMessage || reply.signature() != QLatin1String("ay"))
    return std::nullopt;
  return reply.arguments().value(0).toByteArray();
}

}  // namespace tw::pen::bluez
