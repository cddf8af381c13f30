// How the BlueZ backend reads property maps, signals and replies. Messages are
// real: built with libdbus, sent over a socket and demarshalled by QtDBus
// (DBusLoopback), as they arrive from BlueZ.
#include "pen/bluez/BluezProperties.h"

#include <dbus/dbus.h>
#include <gtest/gtest.h>

#include <QDBusMessage>
#include <functional>

#include "DBusLoopback.h"
#include "pen/BluetoothUuid.h"
#include "tests/pen/PenTestSupport.h"

namespace tw::pen::bluez {
namespace {

using tw::testing::DBusLoopback;

DBusLoopback& loopback() {
  testing::usePenTestEnvironment();
  // Kept to the end of the process (see DBusLoopback).
  static DBusLoopback* l = new DBusLoopback(
      {{QStringLiteral("org.freedesktop.DBus.ObjectManager"), QStringLiteral("InterfacesAdded")},
       {QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("PropertiesChanged")}});
  return *l;
}

// Appends "key": variant of `type` holding `value` to an open a{sv}.
void appendEntry(DBusMessageIter* dict, const char* key, int type, const void* value) {
  DBusMessageIter entry, variant;
  const char typeText[2] = {static_cast<char>(type), '\0'};
  dbus_message_iter_open_container(dict, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
  dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &key);
  dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, typeText, &variant);
  dbus_message_iter_append_basic(&variant, type, value);
  dbus_message_iter_close_container(&entry, &variant);
  dbus_message_iter_close_container(dict, &entry);
}

// a{sv} with Connected as a string, Name as a string, Powered as a boolean,
// Percentage as a 16-bit integer and an undocumented key.
void appendMixedProperties(DBusMessageIter* out) {
  DBusMessageIter dict;
  dbus_message_iter_open_container(out, DBUS_TYPE_ARRAY, "{sv}", &dict);
  const char* yes = "true";
  const char* name = "QUILLA-Pen 02";
  const dbus_bool_t on = TRUE;
  const dbus_uint16_t level = 90;
  const dbus_int32_t rssi = -40;
  appendEntry(&dict, "Connected", DBUS_TYPE_STRING, &yes);
  appendEntry(&dict, "Name", DBUS_TYPE_STRING, &name);
  appendEntry(&dict, "Powered", DBUS_TYPE_BOOLEAN, &on);
  appendEntry(&dict, "Percentage", DBUS_TYPE_UINT16, &level);
  appendEntry(&dict, "RSSI", DBUS_TYPE_INT32, &rssi);
  dbus_message_iter_close_container(out, &dict);
}

QDBusMessage propertiesChanged(const char* path,
                               const std::function<void(DBusMessageIter*)>& body) {
  DBusMessage* signal =
      dbus_message_new_signal(path, "org.freedesktop.DBus.Properties", "PropertiesChanged");
  DBusMessageIter out;
  dbus_message_iter_init_append(signal, &out);
  body(&out);
  const std::optional<QDBusMessage> received = loopback().deliverSignal(signal);
  dbus_message_unref(signal);
  EXPECT_TRUE(received.has_value());
  return received.value_or(QDBusMessage());
}

QDBusMessage reply(const std::function<void(DBusMessageIter*)>& body, bool error = false) {
  return loopback().deliverReply([&](DBusMessage* call) {
    DBusMessage* answer = error ? dbus_message_new_error(call, "org.bluez.Error.Failed", "no")
                                : dbus_message_new_method_return(call);
    DBusMessageIter out;
    dbus_message_iter_init_append(answer, &out);
    body(&out);
    return answer;
  });
}

TEST(BluezProperties, WellTypedDropsDocumentedKeysOfAnotherTypeAndKeepsOtherKeys) {
  const QVariantMap props{{QStringLiteral("Connected"), QStringLiteral("true")},
                          {QStringLiteral("Powered"), true},
                          {QStringLiteral("Percentage"), QVariant::fromValue<uchar>(50)},
                          {QStringLiteral("Value"), QStringLiteral("not bytes")},
                          {QStringLiteral("RSSI"), QStringLiteral("anything")}};
  const QVariantMap typed = wellTyped(props);
  EXPECT_EQ(typed.keys(), (QStringList{QStringLiteral("Percentage"), QStringLiteral("Powered"),
                                       QStringLiteral("RSSI")}));
  EXPECT_EQ(byteProp(typed, QStringLiteral("Percentage")), 50);
  EXPECT_EQ(boolProp(props, QStringLiteral("Connected")), std::nullopt);
  EXPECT_EQ(bytesProp(props, QStringLiteral("Value")), std::nullopt);
}

TEST(BluezProperties, EachReaderTakesOnlyItsOwnTypeWithoutConverting) {
  const QVariantMap props{{QStringLiteral("bool"), true},
                          {QStringLiteral("string"), QStringLiteral("QUILLA")},
                          {QStringLiteral("list"), QStringList{QStringLiteral("1f1f")}},
                          {QStringLiteral("bytes"), QByteArray("\x01\x02", 2)},
                          {QStringLiteral("byte"), QVariant::fromValue<uchar>(7)},
                          {QStringLiteral("int"), 7}};
  EXPECT_EQ(boolProp(props, QStringLiteral("bool")), true);
  EXPECT_EQ(stringProp(props, QStringLiteral("string")), QStringLiteral("QUILLA"));
  EXPECT_EQ(stringListProp(props, QStringLiteral("list")), QStringList{QStringLiteral("1f1f")});
  EXPECT_EQ(bytesProp(props, QStringLiteral("bytes")), QByteArray("\x01\x02", 2));
  EXPECT_EQ(byteProp(props, QStringLiteral("byte")), 7);
  // Values Qt could convert still read as absent (or empty).
  EXPECT_EQ(boolProp(props, QStringLiteral("int")), std::nullopt);
  EXPECT_EQ(stringProp(props, QStringLiteral("list")), std::nullopt);
  EXPECT_EQ(stringListProp(props, QStringLiteral("string")), QStringList());
  EXPECT_EQ(bytesProp(props, QStringLiteral("string")), std::nullopt);
  EXPECT_EQ(byteProp(props, QStringLiteral("int")), std::nullopt);
  EXPECT_EQ(byteProp(props, QStringLiteral("missing")), std::nullopt);
}

TEST(BluezProperties, OnlyDirectChildrenAreChildren) {
  const QString device = QStringLiteral("/org/bluez/hci0/dev_AA");
  EXPECT_TRUE(isChildOf(device + QStringLiteral("/service000a"), device));
  EXPECT_FALSE(isChildOf(device + QStringLiteral("/service000a/char000b"), device));
  EXPECT_FALSE(isChildOf(device + QStringLiteral("B/service000a"), device));
  EXPECT_FALSE(isChildOf(device + QStringLiteral("/"), device));
  EXPECT_FALSE(isChildOf(device, device));
}

TEST(BluezProperties, UuidReadsShortAndLongFormsAndNothingElse) {
  EXPECT_EQ(
      uuidOf({{QStringLiteral("UUID"), QStringLiteral("0000180f-0000-1000-8000-00805f9b34fb")}}),
      batteryServiceUUID());
  EXPECT_EQ(uuidOf({{QStringLiteral("UUID"), QStringLiteral("0x1F1F")}}), penServiceUUID());
  EXPECT_TRUE(uuidOf({{QStringLiteral("UUID"), QStringLiteral("battery")}}).isNull());
  EXPECT_TRUE(uuidOf({{QStringLiteral("UUID"), QByteArray("180F")}}).isNull());
}

TEST(BluezProperties, PropertiesChangedKeepsOnlyWellTypedValuesAndTheSignalsPath) {
  const QDBusMessage m = propertiesChanged("/org/bluez/hci0/dev_AA", [](DBusMessageIter* out) {
    const char* interface = "org.bluez.Device1";
    dbus_message_iter_append_basic(out, DBUS_TYPE_STRING, &interface);
    appendMixedProperties(out);
    DBusMessageIter invalidated;
    const char* gone = "Alias";
    dbus_message_iter_open_container(out, DBUS_TYPE_ARRAY, "s", &invalidated);
    dbus_message_iter_append_basic(&invalidated, DBUS_TYPE_STRING, &gone);
    dbus_message_iter_close_container(out, &invalidated);
  });
  const std::optional<ChangedProperties> changed = propertiesChangedFrom(m);
  ASSERT_TRUE(changed);
  EXPECT_EQ(changed->path, QStringLiteral("/org/bluez/hci0/dev_AA"));
  EXPECT_EQ(changed->interface, QStringLiteral("org.bluez.Device1"));
  EXPECT_EQ(changed->changed.keys(), (QStringList{QStringLiteral("Name"), QStringLiteral("Powered"),
                                                  QStringLiteral("RSSI")}));
  EXPECT_EQ(stringProp(changed->changed, QStringLiteral("Name")), QStringLiteral("QUILLA-Pen 02"));
  EXPECT_EQ(changed->invalidated, QStringList{QStringLiteral("Alias")});
}

TEST(BluezProperties, PropertiesChangedWithoutTheInvalidatedListReadsAsNothing) {
  const QDBusMessage m = propertiesChanged("/org/bluez/hci0", [](DBusMessageIter* out) {
    const char* interface = "org.bluez.Adapter1";
    dbus_message_iter_append_basic(out, DBUS_TYPE_STRING, &interface);
    appendMixedProperties(out);
  });
  EXPECT_EQ(m.signature(), QStringLiteral("sa{sv}"));
  EXPECT_FALSE(propertiesChangedFrom(m));
  EXPECT_FALSE(interfacesAddedFrom(m));
}

TEST(BluezProperties, ManagedObjectsReplyGivesEachObjectsWellTypedInterfaces) {
  const QDBusMessage m = reply([](DBusMessageIter* out) {
    DBusMessageIter objects, object, interfaces, interface;
    const char* path = "/org/bluez/hci0";
    const char* name = "org.bluez.Adapter1";
    dbus_message_iter_open_container(out, DBUS_TYPE_ARRAY, "{oa{sa{sv}}}", &objects);
    dbus_message_iter_open_container(&objects, DBUS_TYPE_DICT_ENTRY, nullptr, &object);
    dbus_message_iter_append_basic(&object, DBUS_TYPE_OBJECT_PATH, &path);
    dbus_message_iter_open_container(&object, DBUS_TYPE_ARRAY, "{sa{sv}}", &interfaces);
    dbus_message_iter_open_container(&interfaces, DBUS_TYPE_DICT_ENTRY, nullptr, &interface);
    dbus_message_iter_append_basic(&interface, DBUS_TYPE_STRING, &name);
    appendMixedProperties(&interface);
    dbus_message_iter_close_container(&interfaces, &interface);
    dbus_message_iter_close_container(&object, &interfaces);
    dbus_message_iter_close_container(&objects, &object);
    dbus_message_iter_close_container(out, &objects);
  });
  const std::optional<ObjectTree> tree = managedObjectsFromReply(m);
  ASSERT_TRUE(tree);
  ASSERT_EQ(tree->keys(), QStringList{QStringLiteral("/org/bluez/hci0")});
  const QVariantMap adapter =
      tree->value(QStringLiteral("/org/bluez/hci0")).value(QStringLiteral("org.bluez.Adapter1"));
  EXPECT_EQ(boolProp(adapter, QStringLiteral("Powered")), true);
  EXPECT_FALSE(adapter.contains(QStringLiteral("Connected")));
  EXPECT_FALSE(adapter.contains(QStringLiteral("Percentage")));
}

TEST(BluezProperties, ErrorReplyReadsAsNothingWhateverItHolds) {
  const QDBusMessage m = reply(
      [](DBusMessageIter* out) {
        DBusMessageIter bytes;
        const char data[] = {1, 2};
        const char* p = data;
        dbus_message_iter_open_container(out, DBUS_TYPE_ARRAY, "y", &bytes);
        dbus_message_iter_append_fixed_array(&bytes, DBUS_TYPE_BYTE, &p, 2);
        dbus_message_iter_close_container(out, &bytes);
      },
      true);
  EXPECT_EQ(m.type(), QDBusMessage::ErrorMessage);
  EXPECT_FALSE(valueFromReadReply(m));
  EXPECT_FALSE(managedObjectsFromReply(m));
}

TEST(BluezProperties, ReadValueReplyGivesItsBytes) {
  const QDBusMessage m = reply([](DBusMessageIter* out) {
    DBusMessageIter bytes;
    const char data[] = {1, static_cast<char>(0xFF), static_cast<char>(0x80), 0, 7};
    const char* p = data;
    dbus_message_iter_open_container(out, DBUS_TYPE_ARRAY, "y", &bytes);
    dbus_message_iter_append_fixed_array(&bytes, DBUS_TYPE_BYTE, &p, 5);
    dbus_message_iter_close_container(out, &bytes);
  });
  EXPECT_EQ(valueFromReadReply(m), QByteArray::fromHex("01FF800007"));
}

TEST(BluezProperties, PercentageReplyCountsOnlyAByte) {
  const auto percentage = [](int type, const void* value) {
    return percentageFromReply(reply([&](DBusMessageIter* out) {
      DBusMessageIter variant;
      const char typeText[2] = {static_cast<char>(type), '\0'};
      dbus_message_iter_open_container(out, DBUS_TYPE_VARIANT, typeText, &variant);
      dbus_message_iter_append_basic(&variant, type, value);
      dbus_message_iter_close_container(out, &variant);
    }));
  };
  const unsigned char byte = 77;
  const dbus_uint16_t wide = 77;
  EXPECT_EQ(percentage(DBUS_TYPE_BYTE, &byte), 77);
  EXPECT_EQ(percentage(DBUS_TYPE_UINT16, &wide), std::nullopt);
}

}  // namespace
}  // namespace tw::pen::bluez
