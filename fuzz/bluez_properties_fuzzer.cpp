// What the BlueZ backend reads from the bus (pen/bluez/BluezProperties.h), fed
// with real D-Bus messages: the input is decoded into a message body built with
// libdbus (any type at any place: nested variants, structures, dictionaries,
// integers of every width, wrong types under every key), sent across a socket
// and demarshalled by QtDBus itself (DBusLoopback), then handed to every parser.
//
// Input: byte 0 picks the message (GetManagedObjects reply, InterfacesAdded,
// InterfacesRemoved, PropertiesChanged, Battery1.Percentage Get reply,
// ReadValue reply); byte 1 keeps its documented signature (below 200) or
// draws another; replies may come back as errors. The rest fills the values.
#include <dbus/dbus.h>

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <cstdint>
#include <string>

#include "DBusLoopback.h"
#include "FuzzInput.h"
#include "pen/BluetoothUuid.h"
#include "pen/bluez/BluezProperties.h"

namespace tw::pen::bluez {
namespace {

using testing::FuzzInput;

// Names BlueZ and this backend use, so that the fuzzer reaches the checks
// behind them without guessing.
const char* const kWords[] = {"org.bluez.Adapter1",
                              "org.bluez.Device1",
                              "org.bluez.GattService1",
                              "org.bluez.GattCharacteristic1",
                              "org.bluez.Battery1",
                              "org.freedesktop.DBus.Properties",
                              "Powered",
                              "Connected",
                              "ServicesResolved",
                              "Address",
                              "Name",
                              "UUID",
                              "UUIDs",
                              "Value",
                              "Percentage",
                              "RSSI",
                              "ManufacturerData",
                              "AdvertisingData",
                              "Alias",
                              "AA:BB:CC:DD:EE:01",
                              "aa:bb:cc:dd:ee:0f",
                              "QUILLA-Pen 02",
                              "00001f1f-0000-1000-8000-00805f9b34fb",
                              "00001F16-0000-1000-8000-00805F9B34FB",
                              "0000180f-0000-1000-8000-00805f9b34fb",
                              "00002a19-0000-1000-8000-00805f9b34fb",
                              "0x1F1F",
                              "180F",
                              "le",
                              ""};
const char* const kPathParts[] = {
    "org",         "bluez",       "hci0",     "hci1",     "dev_AA_BB_CC_DD_EE_01",
    "service000a", "service0010", "char000b", "char0011", "tintwell_battery",
    "level"};
// D-Bus basic type codes; unix file descriptors are left out (the link never
// negotiates passing them).
const char kBasic[] = "ybnqiuxtdsog";
constexpr int kBasicCount = sizeof(kBasic) - 1;
constexpr int kMaxDepth = 4;

QByteArray pickString(FuzzInput& in) {
  const std::uint8_t b = in.byte();
  if (b < 224) return kWords[b % std::size(kWords)];
  // Any text D-Bus carries: valid UTF-8 without NUL.
  QString text = QString::fromUtf8(in.lengthPrefixed(40));
  text.remove(QChar(0));
  return text.toUtf8();
}

QByteArray pickPath(FuzzInput& in) {
  if (in.byte() < 32) return "/";
  QByteArray path;
  const std::size_t parts = 1 + in.below(6);
  for (std::size_t i = 0; i < parts; ++i) {
    path += '/';
    const std::uint8_t b = in.byte();
    if (b < 200) {
      path += kPathParts[b % std::size(kPathParts)];
    } else {
      static const char allowed[] =
          "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
      const std::size_t length = 1 + in.below(8);
      for (std::size_t k = 0; k < length; ++k) path += allowed[in.byte() % (sizeof(allowed) - 1)];
    }
  }
  return path;
}

// Appends one complete type, at most kMaxDepth containers deep, to `type`.
void appendRandomType(std::string& type, FuzzInput& in, int depth) {
  const std::size_t pick = in.below(depth >= kMaxDepth ? kBasicCount : kBasicCount + 6);
  if (pick < kBasicCount) {
    type.push_back(kBasic[pick]);
    return;
  }
  switch (pick - kBasicCount) {
    case 0:
      type.push_back('v');
      break;
    case 1:
      type.append("ay");
      break;
    case 2:
      type.append("as");
      break;
    case 3:
      type.push_back('a');
      appendRandomType(type, in, depth + 1);
      break;
    case 4:
      type.append("a{");
      type.push_back(kBasic[in.below(kBasicCount)]);
      appendRandomType(type, in, depth + 1);
      type.push_back('}');
      break;
    default: {
      type.push_back('(');
      const std::size_t fields = 1 + in.below(3);
      for (std::size_t i = 0; i < fields; ++i) appendRandomType(type, in, depth + 1);
      type.push_back(')');
    }
  }
}

std::string randomType(FuzzInput& in, int depth) {
  std::string type;
  appendRandomType(type, in, depth);
  return type;
}

void appendValue(DBusMessageIter* out, DBusSignatureIter* type, FuzzInput& in, int depth);

void appendBasic(DBusMessageIter* out, int type, const void* value) {
  if (!dbus_message_iter_append_basic(out, type, value)) std::abort();
}

void appendValue(DBusMessageIter* out, DBusSignatureIter* type, FuzzInput& in, int depth) {
  const int code = dbus_signature_iter_get_current_type(type);
  switch (code) {
    case DBUS_TYPE_BYTE: {
      const unsigned char v = in.byte();
      appendBasic(out, code, &v);
      break;
    }
    case DBUS_TYPE_BOOLEAN: {
      const dbus_bool_t v = in.flag() ? TRUE : FALSE;
      appendBasic(out, code, &v);
      break;
    }
    case DBUS_TYPE_INT16:
    case DBUS_TYPE_UINT16: {
      const dbus_uint16_t v = in.u16();
      appendBasic(out, code, &v);
      break;
    }
    case DBUS_TYPE_INT32:
    case DBUS_TYPE_UINT32: {
      const dbus_uint32_t v = in.u32();
      appendBasic(out, code, &v);
      break;
    }
    case DBUS_TYPE_INT64:
    case DBUS_TYPE_UINT64:
    case DBUS_TYPE_DOUBLE: {
      // Any bit pattern, NaNs and infinities included, for the double.
      const dbus_uint64_t v = in.u64();
      appendBasic(out, code, &v);
      break;
    }
    case DBUS_TYPE_STRING: {
      const QByteArray text = pickString(in);
      const char* p = text.constData();
      appendBasic(out, code, &p);
      break;
    }
    case DBUS_TYPE_OBJECT_PATH: {
      const QByteArray path = pickPath(in);
      const char* p = path.constData();
      appendBasic(out, code, &p);
      break;
    }
    case DBUS_TYPE_SIGNATURE: {
      const std::string signature = randomType(in, kMaxDepth - 1);
      const char* p = signature.c_str();
      appendBasic(out, code, &p);
      break;
    }
    case DBUS_TYPE_VARIANT: {
      const std::string inner = randomType(in, depth + 1);
      DBusMessageIter sub;
      if (!dbus_message_iter_open_container(out, code, inner.c_str(), &sub)) std::abort();
      DBusSignatureIter innerType;
      dbus_signature_iter_init(&innerType, inner.c_str());
      appendValue(&sub, &innerType, in, depth + 1);
      if (!dbus_message_iter_close_container(out, &sub)) std::abort();
      break;
    }
    case DBUS_TYPE_ARRAY: {
      DBusSignatureIter element;
      dbus_signature_iter_recurse(type, &element);
      char* elementType = dbus_signature_iter_get_signature(&element);
      DBusMessageIter sub;
      if (!dbus_message_iter_open_container(out, code, elementType, &sub)) std::abort();
      if (dbus_signature_iter_get_current_type(&element) == DBUS_TYPE_BYTE) {
        const QByteArray bytes = in.lengthPrefixed(12);
        const char* p = bytes.constData();
        if (!dbus_message_iter_append_fixed_array(&sub, DBUS_TYPE_BYTE, &p,
                                                  static_cast<int>(bytes.size())))
          std::abort();
      } else {
        const std::size_t count = in.below(5);
        for (std::size_t i = 0; i < count; ++i) {
          DBusSignatureIter each;
          dbus_signature_iter_recurse(type, &each);
          appendValue(&sub, &each, in, depth + 1);
        }
      }
      if (!dbus_message_iter_close_container(out, &sub)) std::abort();
      dbus_free(elementType);
      break;
    }
    case DBUS_TYPE_DICT_ENTRY:
    case DBUS_TYPE_STRUCT: {
      DBusMessageIter sub;
      if (!dbus_message_iter_open_container(out, code, nullptr, &sub)) std::abort();
      DBusSignatureIter field;
      dbus_signature_iter_recurse(type, &field);
      do {
        appendValue(&sub, &field, in, depth + 1);
      } while (dbus_signature_iter_next(&field));
      if (!dbus_message_iter_close_container(out, &sub)) std::abort();
      break;
    }
    default:
      std::abort();
  }
}

// Fills `message` with the documented body (`signature`) or, when the input
// says so, with zero to three values of drawn types.
void appendBody(DBusMessage* message, const char* signature, bool documented, FuzzInput& in) {
  std::string body = signature;
  if (!documented) {
    body.clear();
    const std::size_t count = in.below(4);
    for (std::size_t i = 0; i < count; ++i) {
      // A body signature has at most 255 bytes (one less leaves room for an
      // error's text): libdbus would write a longer one with its length byte
      // wrapped, and then misread its own message.
      std::string next;
      appendRandomType(next, in, 0);
      if (body.size() + next.size() < DBUS_MAXIMUM_SIGNATURE_LENGTH) body += next;
    }
  }
  if (body.empty()) return;
  DBusMessageIter out;
  dbus_message_iter_init_append(message, &out);
  DBusSignatureIter type;
  dbus_signature_iter_init(&type, body.c_str());
  do {
    appendValue(&out, &type, in, 0);
  } while (dbus_signature_iter_next(&type));
}

// Every property the backend reads has its documented type after wellTyped,
// and the typed getters agree with it.
void checkWellTyped(const QVariantMap& props) {
  for (auto it = props.constBegin(); it != props.constEnd(); ++it) {
    const std::optional<int> type = documentedType(it.key());
    if (!type) continue;
    TW_FUZZ_CHECK(it->metaType().id() == *type);
    switch (*type) {
      case QMetaType::Bool:
        TW_FUZZ_CHECK(boolProp(props, it.key()) == it->toBool());
        break;
      case QMetaType::QString:
        TW_FUZZ_CHECK(stringProp(props, it.key()) == it->toString());
        break;
      case QMetaType::QStringList:
        TW_FUZZ_CHECK(stringListProp(props, it.key()) == it->toStringList());
        break;
      case QMetaType::QByteArray:
        TW_FUZZ_CHECK(bytesProp(props, it.key()) == it->toByteArray());
        break;
      case QMetaType::UChar:
        TW_FUZZ_CHECK(byteProp(props, it.key()) == it->value<uchar>());
        break;
    }
  }
  TW_FUZZ_CHECK(wellTyped(props).keys() == props.keys());
  if (!uuidOf(props).isNull()) TW_FUZZ_CHECK(stringProp(props, QStringLiteral("UUID")));
}

void checkInterfaces(const Interfaces& interfaces) {
  for (const QVariantMap& props : interfaces) checkWellTyped(props);
}

void checkPaths(const QStringList& paths) {
  for (const QString& path : paths) {
    TW_FUZZ_CHECK(!isChildOf(path, path));
    for (const QString& parent : paths) {
      if (!isChildOf(path, parent)) continue;
      TW_FUZZ_CHECK(path.startsWith(parent + QLatin1Char('/')));
      TW_FUZZ_CHECK(!path.mid(parent.size() + 1).contains(QLatin1Char('/')));
    }
  }
}

// Hands one received message to every parser: each takes exactly the
// messages of its own kind and signature.
void parseEverything(const QDBusMessage& m) {
  const bool reply = m.type() == QDBusMessage::ReplyMessage;
  const QString signature = m.signature();

  const std::optional<ObjectTree> tree = managedObjectsFromReply(m);
  TW_FUZZ_CHECK(tree.has_value() == (reply && signature == QLatin1String("a{oa{sa{sv}}}")));
  if (tree) {
    for (const Interfaces& interfaces : *tree) checkInterfaces(interfaces);
    checkPaths(tree->keys());
  }

  const std::optional<AddedInterfaces> added = interfacesAddedFrom(m);
  TW_FUZZ_CHECK(added.has_value() == (signature == QLatin1String("oa{sa{sv}}")));
  if (added) {
    TW_FUZZ_CHECK(added->path.startsWith(QLatin1Char('/')));
    checkInterfaces(added->interfaces);
  }

  const std::optional<RemovedInterfaces> removed = interfacesRemovedFrom(m);
  TW_FUZZ_CHECK(removed.has_value() == (signature == QLatin1String("oas")));
  if (removed) TW_FUZZ_CHECK(removed->path.startsWith(QLatin1Char('/')));

  const std::optional<ChangedProperties> changed = propertiesChangedFrom(m);
  TW_FUZZ_CHECK(changed.has_value() == (signature == QLatin1String("sa{sv}as")));
  if (changed) {
    TW_FUZZ_CHECK(changed->path == m.path());
    checkWellTyped(changed->changed);
  }

  const std::optional<quint8> level = percentageFromReply(m);
  if (level) TW_FUZZ_CHECK(reply && signature == QLatin1String("v"));
  const std::optional<QByteArray> value = valueFromReadReply(m);
  TW_FUZZ_CHECK(value.has_value() == (reply && signature == QLatin1String("ay")));
}

// What libdbus itself reads from the reply that was sent, to compare with
// what QtDBus delivered: the bytes of an "ay" body, the byte inside a "v".
struct SentReply {
  std::optional<QByteArray> bytes;
  std::optional<quint8> variantByte;
};

SentReply readBack(DBusMessage* reply) {
  SentReply sent;
  DBusMessageIter it;
  if (dbus_message_get_type(reply) != DBUS_MESSAGE_TYPE_METHOD_RETURN ||
      !dbus_message_iter_init(reply, &it))
    return sent;
  const QByteArray signature = dbus_message_get_signature(reply);
  if (signature == "ay") {
    DBusMessageIter sub;
    dbus_message_iter_recurse(&it, &sub);
    const char* p = nullptr;
    int n = 0;
    dbus_message_iter_get_fixed_array(&sub, &p, &n);
    sent.bytes = QByteArray(p, n);
  } else if (signature == "v") {
    DBusMessageIter sub;
    dbus_message_iter_recurse(&it, &sub);
    if (dbus_message_iter_get_arg_type(&sub) == DBUS_TYPE_BYTE) {
      unsigned char b = 0;
      dbus_message_iter_get_basic(&sub, &b);
      sent.variantByte = b;
    }
  }
  return sent;
}

testing::DBusLoopback& loopback() {
  static testing::DBusLoopback* made = [] {
    auto* l = new testing::DBusLoopback(
        {{QStringLiteral("org.freedesktop.DBus.ObjectManager"), QStringLiteral("InterfacesAdded")},
         {QStringLiteral("org.freedesktop.DBus.ObjectManager"),
          QStringLiteral("InterfacesRemoved")},
         {QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("PropertiesChanged")}});
    if (!l->isReady()) {
      std::fprintf(stderr, "bluez_properties: no D-Bus loopback\n");
      std::abort();
    }
    return l;
  }();
  return *made;
}

void runOne(FuzzInput& in) {
  struct Kind {
    bool isSignal;
    const char* interface;
    const char* member;
    const char* signature;
  };
  static const Kind kinds[] = {
      {false, nullptr, nullptr, "a{oa{sa{sv}}}"},
      {true, "org.freedesktop.DBus.ObjectManager", "InterfacesAdded", "oa{sa{sv}}"},
      {true, "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved", "oas"},
      {true, "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as"},
      {false, nullptr, nullptr, "v"},
      {false, nullptr, nullptr, "ay"},
  };
  const Kind& kind = kinds[in.below(std::size(kinds))];
  const bool documented = in.byte() < 200;

  if (kind.isSignal) {
    // The signals BlueZ sends for the object manager come from "/"; property
    // changes from the object's own path.
    const QByteArray path = kind.signature == std::string_view("sa{sv}as") ? pickPath(in) : "/";
    DBusMessage* signal = dbus_message_new_signal(path.constData(), kind.interface, kind.member);
    appendBody(signal, kind.signature, documented, in);
    if (!testing::DBusLoopback::carries(signal)) {  // no bus would deliver it
      dbus_message_unref(signal);
      return;
    }
    const std::optional<QDBusMessage> received = loopback().deliverSignal(signal);
    dbus_message_unref(signal);
    TW_FUZZ_CHECK(received.has_value());
    TW_FUZZ_CHECK(received->path() == QString::fromUtf8(path));
    parseEverything(*received);
    return;
  }

  const bool error = in.byte() >= 240;
  {
    // The reply is made once the call has arrived; a rehearsal on a copy of
    // the input says first whether D-Bus could carry it at all.
    FuzzInput rehearsal = in;
    DBusMessage* probe =
        dbus_message_new(error ? DBUS_MESSAGE_TYPE_ERROR : DBUS_MESSAGE_TYPE_METHOD_RETURN);
    dbus_message_set_reply_serial(probe, 1);
    if (error) {  // as dbus_message_new_error makes it: the name, then the text first
      const char* text = "failed";
      dbus_message_set_error_name(probe, "org.bluez.Error.Failed");
      dbus_message_append_args(probe, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    }
    appendBody(probe, kind.signature, documented, rehearsal);
    const bool carried = testing::DBusLoopback::carries(probe);
    dbus_message_unref(probe);
    if (!carried) return;  // no bus would deliver it
  }
  SentReply sent;
  const QDBusMessage received = loopback().deliverReply([&](DBusMessage* call) {
    DBusMessage* reply = error ? dbus_message_new_error(call, "org.bluez.Error.Failed", "failed")
                               : dbus_message_new_method_return(call);
    appendBody(reply, kind.signature, documented, in);
    sent = readBack(reply);
    return reply;
  });
  TW_FUZZ_CHECK(received.type() ==
                (error ? QDBusMessage::ErrorMessage : QDBusMessage::ReplyMessage));
  parseEverything(received);
  // QtDBus hands over what libdbus sent, byte for byte.
  TW_FUZZ_CHECK(valueFromReadReply(received) == sent.bytes);
  TW_FUZZ_CHECK(percentageFromReply(received) == sent.variantByte);
}

}  // namespace
}  // namespace tw::pen::bluez

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static QCoreApplication app(*argc, *argv);
  tw::pen::bluez::loopback();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tw::testing::FuzzInput in(data, size);
  tw::pen::bluez::runOne(in);
  return 0;
}
