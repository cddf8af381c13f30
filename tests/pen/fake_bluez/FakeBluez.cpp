// A stand-in for BlueZ on a private bus: it speaks the parts of the BlueZ D-Bus
// API the pen link uses (ObjectManager, Properties, Adapter1, Device1,
// GattService1, GattCharacteristic1, Battery1) and takes its orders on its own
// interface org.tintwell.FakeBluez1 (any object path; the well-known name
// org.tintwell.FakeBluez stays while org.bluez comes and goes).
//
// Control methods (interface org.tintwell.FakeBluez1, object
// /org/tintwell/FakeBluez, name org.tintwell.FakeBluez):
//   AddAdapter(s name, b powered) -> o        RemoveAdapter(s name)
//   SetPowered(s name, b powered)             powering off disconnects its devices
//   AddDevice(s adapter, s address, a{sv} options) -> o, options:
//     name s (absent: no name), known b (exported now; default true),
//     connected b (connected to the system already), advertising b (exported or
//     refreshed when a scan admits it), pen b (service 0x1F1F with 0x1F16;
//     default true), battery s ("gatt": exported 0x180F/0x2A19, the default;
//     "battery1": Battery1 only; "both"; "none"), level y, swap b (0x1F16
//     under the battery service and 0x2A19 under the pen service),
//     connect s ("ok", "hang": never answered, "fail"), battery1DelayMs i
//     (Battery1 that long after ServicesResolved), colorIntervalMs i
//   SendColor(s address, ay packet) -> b      a notification, if notifying
//   SendBurst(s address, u count, u intervalUs)   stamped packets (see below)
//   SetBattery(s address, y level)            Disconnect(s address)
//   SetConnectMode(s address, s mode)         how its Connect answers from now on
//   Calls() -> as, ClearCalls()               the client's calls, in order
//   CallTimes() -> as                         when each of them came (ms, monotonic, decimal)
//   ReleaseBluez(), AcquireBluez()            org.bluez leaves / returns
//   Malformed(s kind): "managed-objects" or "read" or "connect" (the next such
//     reply is malformed), "signals" (a burst of malformed signals now)
//   Quit()
//
// Usage: fake_bluez [--pen NAME] [--interval-ms N]
//   With --pen it starts with a powered adapter hci0 and one pen AA:BB:CC:DD:EE:02
//   of that name that advertises while scanned for and, once connected, sends a
//   colour every N milliseconds (default 1000). Prints "ready" when serving.
#include <QCoreApplication>
#include <QDBusAbstractInterface>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QMap>
#include <QTimer>
#include <cstdio>
#include <ctime>
#include <optional>

namespace {

using InterfaceMap = QMap<QString, QVariantMap>;

const QString kAdapterIf = QStringLiteral("org.bluez.Adapter1");
const QString kDeviceIf = QStringLiteral("org.bluez.Device1");
const QString kServiceIf = QStringLiteral("org.bluez.GattService1");
const QString kCharIf = QStringLiteral("org.bluez.GattCharacteristic1");
const QString kBatteryIf = QStringLiteral("org.bluez.Battery1");
const QString kPropsIf = QStringLiteral("org.freedesktop.DBus.Properties");
const QString kObjMgrIf = QStringLiteral("org.freedesktop.DBus.ObjectManager");
const QString kControlIf = QStringLiteral("org.tintwell.FakeBluez1");

QString longUuid(const char* shortForm) {
  return QStringLiteral("0000%1-0000-1000-8000-00805f9b34fb").arg(QLatin1String(shortForm));
}
const QString kPenService = longUuid("1f1f");
const QString kColorChar = longUuid("1f16");
const QString kBatteryService = longUuid("180f");
const QString kLevelChar = longUuid("2a19");

quint64 monotonicNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return quint64(ts.tv_sec) * 1000000000ull + quint64(ts.tv_nsec);
}

struct Characteristic {
  QString path;
  QString uuid;
  QStringList flags;
  QByteArray value;
  bool notifying = false;
};
struct GattService {
  QString path;
  QString uuid;
  QList<Characteristic> chars;
};
struct Device {
  QString path;
  QString adapter;
  QString address;
  std::optional<QString> name;
  bool exported = false;
  bool connected = false;
  bool servicesResolved = false;
  bool advertising = false;
  bool pen = true;
  QString battery = QStringLiteral("gatt");  // gatt, battery1, both, none
  quint8 level = 100;
  bool swap = false;
  QString connectMode = QStringLiteral("ok");  // ok, hang, fail
  int battery1DelayMs = -1;                    // >= 0: Battery1 after ServicesResolved
  int colorIntervalMs = 0;                     // > 0: a colour every so often once notifying
  bool gattExported = false;
  bool battery1Exported = false;
  QList<GattService> services;
  QList<QDBusMessage> pendingConnects;
};
struct Adapter {
  QString path;
  QString address;
  bool powered = true;
  bool discovering = false;
  QString client;
  QStringList filterUuids;
};

class FakeBluez : public QDBusVirtualObject {
 public:
  explicit FakeBluez(QDBusConnection bus) : bus_(bus) {}

  QString introspect(const QString&) const override { return {}; }

  bool handleMessage(const QDBusMessage& m, const QDBusConnection&) override {
    const QString iface = m.interface();
    if (iface == kControlIf) return control(m);
    if (iface == kObjMgrIf && m.member() == QLatin1String("GetManagedObjects")) {
      record(QStringLiteral("GetManagedObjects"));
      if (std::exchange(malformedObjects_, false)) {
        reply(m, {QStringLiteral("garbage")});
        return true;
      }
      QDBusArgument arg;
      arg.beginMap(QMetaType::fromType<QDBusObjectPath>(), QMetaType::fromType<InterfaceMap>());
      for (const QString& path : exportedPaths()) {
        arg.beginMapEntry();
        arg << QDBusObjectPath(path) << interfacesOf(path);
        arg.endMapEntry();
      }
      arg.endMap();
      reply(m, {QVariant::fromValue(arg)});
      return true;
    }
    if (iface == kPropsIf) return properties(m);
    if (iface == kAdapterIf) return adapterCall(m);
    if (iface == kDeviceIf) return deviceCall(m);
    if (iface == kCharIf) return charCall(m);
    error(m, QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"), QStringLiteral("unknown"));
    return true;
  }

  void addPen(const QString& name, int intervalMs) {
    adapters_.insert(
        QStringLiteral("/org/bluez/hci0"),
        makeAdapter(QStringLiteral("/org/bluez/hci0"), QStringLiteral("00:11:22:33:44:55"), true));
    QVariantMap options{{QStringLiteral("name"), name},
                        {QStringLiteral("known"), false},
                        {QStringLiteral("advertising"), true},
                        {QStringLiteral("colorIntervalMs"), intervalMs}};
    addDevice(QStringLiteral("hci0"), QStringLiteral("AA:BB:CC:DD:EE:02"), options);
  }

 private:
  static Adapter makeAdapter(const QString& path, const QString& address, bool powered) {
    Adapter a;
    a.path = path;
    a.address = address;
    a.powered = powered;
    return a;
  }
  // --- plumbing ---
  void record(const QString& call) {
    calls_.append(call);
    callTimes_.append(clock_.elapsed());
  }
  void reply(const QDBusMessage& m, const QVariantList& args = {}) {
    bus_.send(m.createReply(args));
  }
  void error(const QDBusMessage& m, const QString& name, const QString& text) {
    bus_.send(m.createErrorReply(name, text));
  }
  void signal(const QString& path, const QString& iface, const QString& name,
              const QVariantList& args) {
    QDBusMessage s = QDBusMessage::createSignal(path, iface, name);
    s.setArguments(args);
    bus_.send(s);
  }
  void changed(const QString& path, const QString& iface, const QVariantMap& props) {
    signal(path, kPropsIf, QStringLiteral("PropertiesChanged"), {iface, props, QStringList()});
  }
  void added(const QString& path) {
    signal(QStringLiteral("/"), kObjMgrIf, QStringLiteral("InterfacesAdded"),
           {QVariant::fromValue(QDBusObjectPath(path)), QVariant::fromValue(interfacesOf(path))});
  }
  void addedOnly(const QString& path, const QString& iface) {
    InterfaceMap one{{iface, interfacesOf(path).value(iface)}};
    signal(QStringLiteral("/"), kObjMgrIf, QStringLiteral("InterfacesAdded"),
           {QVariant::fromValue(QDBusObjectPath(path)), QVariant::fromValue(one)});
  }
  void removed(const QString& path, const QStringList& ifaces) {
    signal(QStringLiteral("/"), kObjMgrIf, QStringLiteral("InterfacesRemoved"),
           {QVariant::fromValue(QDBusObjectPath(path)), ifaces});
  }

  // --- the object tree ---
  QStringList exportedPaths() const {
    QStringList paths;
    for (const auto& a : adapters_) paths.append(a.path);
    for (const auto& d : devices_) {
      if (!d.exported) continue;
      paths.append(d.path);
      if (!d.gattExported) continue;
      for (const auto& s : d.services) {
        paths.append(s.path);
        for (const auto& c : s.chars) paths.append(c.path);
      }
    }
    paths.sort();
    return paths;
  }
  Device* deviceAt(const QString& path) {
    for (auto& d : devices_)
      if (d.path == path) return &d;
    return nullptr;
  }
  Device* deviceByAddress(const QString& address) {
    for (auto& d : devices_)
      if (d.address.compare(address, Qt::CaseInsensitive) == 0) return &d;
    return nullptr;
  }
  Characteristic* charAt(const QString& path, Device** owner = nullptr) {
    for (auto& d : devices_)
      for (auto& s : d.services)
        for (auto& c : s.chars)
          if (c.path == path) {
            if (owner) *owner = &d;
            return &c;
          }
    return nullptr;
  }
  QStringList deviceUuids(const Device& d) const {
    QStringList uuids;
    if (d.pen) uuids << kPenService;
    if (d.battery != QLatin1String("none")) uuids << kBatteryService;
    return uuids;
  }
  InterfaceMap interfacesOf(const QString& path) const {
    InterfaceMap result;
    if (adapters_.contains(path)) {
      const Adapter& a = adapters_[path];
      result.insert(kAdapterIf, {{QStringLiteral("Address"), a.address},
                                 {QStringLiteral("Name"), path.section('/', -1)},
                                 {QStringLiteral("Powered"), a.powered},
                                 {QStringLiteral("Discovering"), a.discovering}});
      return result;
    }
    for (const auto& d : devices_) {
      if (d.path == path) {
        QVariantMap props{
            {QStringLiteral("Address"), d.address},
            {QStringLiteral("Alias"), d.name.value_or(d.address)},
            {QStringLiteral("Adapter"), QVariant::fromValue(QDBusObjectPath(d.adapter))},
            {QStringLiteral("Connected"), d.connected},
            {QStringLiteral("ServicesResolved"), d.servicesResolved},
            {QStringLiteral("Paired"), false},
            {QStringLiteral("UUIDs"), deviceUuids(d)}};
        if (d.name) props.insert(QStringLiteral("Name"), *d.name);
        if (d.advertising) props.insert(QStringLiteral("RSSI"), QVariant::fromValue(qint16(-50)));
        result.insert(kDeviceIf, props);
        if (d.battery1Exported)
          result.insert(kBatteryIf,
                        {{QStringLiteral("Percentage"), QVariant::fromValue(uchar(d.level))}});
        return result;
      }
      for (const auto& s : d.services) {
        if (s.path == path) {
          result.insert(kServiceIf,
                        {{QStringLiteral("UUID"), s.uuid},
                         {QStringLiteral("Primary"), true},
                         {QStringLiteral("Device"), QVariant::fromValue(QDBusObjectPath(d.path))}});
          return result;
        }
        for (const auto& c : s.chars)
          if (c.path == path) {
            result.insert(
                kCharIf, {{QStringLiteral("UUID"), c.uuid},
                          {QStringLiteral("Service"), QVariant::fromValue(QDBusObjectPath(s.path))},
                          {QStringLiteral("Value"), c.value},
                          {QStringLiteral("Notifying"), c.notifying},
                          {QStringLiteral("Flags"), c.flags}});
            return result;
          }
      }
    }
    return result;
  }

  // --- org.freedesktop.DBus.Properties ---
  bool properties(const QDBusMessage& m) {
    const QVariantList a = m.arguments();
    const InterfaceMap all = interfacesOf(m.path());
    if (m.member() == QLatin1String("GetAll")) {
      reply(m, {all.value(a.value(0).toString())});
      return true;
    }
    if (m.member() == QLatin1String("Get")) {
      record(QStringLiteral("Get %1 %2.%3")
                 .arg(m.path(), a.value(0).toString(), a.value(1).toString()));
      const QVariantMap props = all.value(a.value(0).toString());
      if (!props.contains(a.value(1).toString())) {
        error(m, QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"),
              QStringLiteral("No such property"));
        return true;
      }
      reply(m, {QVariant::fromValue(QDBusVariant(props.value(a.value(1).toString())))});
      return true;
    }
    if (m.member() == QLatin1String("Set") && adapters_.contains(m.path()) &&
        a.value(1).toString() == QLatin1String("Powered")) {
      setPowered(m.path(), a.value(2).value<QDBusVariant>().variant().toBool());
      reply(m);
      return true;
    }
    error(m, QStringLiteral("org.freedesktop.DBus.Error.PropertyReadOnly"),
          QStringLiteral("read-only"));
    return true;
  }

  // --- org.bluez.Adapter1 ---
  bool adapterCall(const QDBusMessage& m) {
    if (!adapters_.contains(m.path())) {
      error(m, QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"),
            QStringLiteral("no adapter"));
      return true;
    }
    Adapter& a = adapters_[m.path()];
    const QString member = m.member();
    if (member == QLatin1String("SetDiscoveryFilter")) {
      const QVariantMap filter = qdbus_cast<QVariantMap>(m.arguments().value(0));
      QStringList parts;
      for (auto it = filter.constBegin(); it != filter.constEnd(); ++it) {
        const QVariant v = it.value();
        parts << it.key() + QLatin1Char('=') +
                     (v.metaType().id() == QMetaType::QStringList
                          ? v.toStringList().join(QLatin1Char(','))
                          : v.toString());
      }
      record(QStringLiteral("SetDiscoveryFilter ") + parts.join(QLatin1Char(' ')));
      a.filterUuids = filter.value(QStringLiteral("UUIDs")).toStringList();
      reply(m);
      return true;
    }
    if (member == QLatin1String("StartDiscovery")) {
      record(QStringLiteral("StartDiscovery"));
      if (!a.powered) {
        error(m, QStringLiteral("org.bluez.Error.NotReady"), QStringLiteral("Resource Not Ready"));
        return true;
      }
      if (a.discovering && a.client == m.service()) {
        error(m, QStringLiteral("org.bluez.Error.InProgress"),
              QStringLiteral("Operation already in progress"));
        return true;
      }
      a.discovering = true;
      a.client = m.service();
      reply(m);
      changed(a.path, kAdapterIf, {{QStringLiteral("Discovering"), true}});
      advertiseAll(a);
      return true;
    }
    if (member == QLatin1String("StopDiscovery")) {
      record(QStringLiteral("StopDiscovery"));
      if (!a.discovering) {
        error(m, QStringLiteral("org.bluez.Error.Failed"), QStringLiteral("No discovery started"));
        return true;
      }
      a.discovering = false;
      reply(m);
      changed(a.path, kAdapterIf, {{QStringLiteral("Discovering"), false}});
      return true;
    }
    error(m, QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"), member);
    return true;
  }
  void advertiseAll(const Adapter& a) {
    for (auto& d : devices_) {
      if (d.adapter != a.path || !d.advertising) continue;
      if (!a.filterUuids.isEmpty()) {
        bool admitted = false;
        for (const QString& u : deviceUuids(d))
          admitted |= a.filterUuids.contains(u, Qt::CaseInsensitive);
        if (!admitted) continue;
      }
      if (!d.exported) {
        d.exported = true;
        added(d.path);
      } else {
        changed(d.path, kDeviceIf, {{QStringLiteral("RSSI"), QVariant::fromValue(qint16(-48))}});
      }
    }
  }

  // --- org.bluez.Device1 ---
  bool deviceCall(const QDBusMessage& m) {
    Device* d = deviceAt(m.path());
    if (!d || !d->exported) {
      error(m, QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"),
            QStringLiteral("no device"));
      return true;
    }
    if (m.member() == QLatin1String("Connect")) {
      record(QStringLiteral("Connect ") + d->address);
      if (!adapters_.value(d->adapter).powered) {
        error(m, QStringLiteral("org.bluez.Error.NotReady"), QStringLiteral("Resource Not Ready"));
        return true;
      }
      if (std::exchange(malformedConnect_, false)) {
        reply(m, {QStringLiteral("unexpected"), 42});
        if (!d->connected) connectDevice(*d);
        return true;
      }
      if (d->connectMode == QLatin1String("fail")) {
        error(m, QStringLiteral("org.bluez.Error.Failed"), QStringLiteral("Connection failed"));
        return true;
      }
      if (d->connectMode == QLatin1String("hang")) {
        m.setDelayedReply(true);
        d->pendingConnects.append(m);
        return true;
      }
      if (d->connected) {  // the system had it: no property change
        reply(m);
        return true;
      }
      connectDevice(*d);
      reply(m);
      return true;
    }
    if (m.member() == QLatin1String("Disconnect")) {
      record(QStringLiteral("Disconnect ") + d->address);
      reply(m);
      disconnectDevice(*d);
      return true;
    }
    error(m, QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"), m.member());
    return true;
  }
  void connectDevice(Device& d) {
    d.connected = true;
    changed(d.path, kDeviceIf, {{QStringLiteral("Connected"), true}});
    const QString path = d.path;
    QTimer::singleShot(5, [this, path] {
      if (Device* dev = deviceAt(path); dev && dev->connected) resolveServices(*dev);
    });
  }
  void resolveServices(Device& d) {
    d.gattExported = true;
    for (const auto& s : d.services) {
      added(s.path);
      for (const auto& c : s.chars) added(c.path);
    }
    const bool battery1 =
        d.battery == QLatin1String("battery1") || d.battery == QLatin1String("both");
    if (battery1 && d.battery1DelayMs < 0) exportBattery1(d);
    d.servicesResolved = true;
    changed(d.path, kDeviceIf, {{QStringLiteral("ServicesResolved"), true}});
    if (battery1 && d.battery1DelayMs >= 0) {
      const QString path = d.path;
      QTimer::singleShot(d.battery1DelayMs, [this, path] {
        if (Device* dev = deviceAt(path); dev && dev->connected) exportBattery1(*dev);
      });
    }
  }
  void exportBattery1(Device& d) {
    d.battery1Exported = true;
    addedOnly(d.path, kBatteryIf);
  }
  void disconnectDevice(Device& d) {
    if (!d.connected) return;
    for (QDBusMessage& pending : d.pendingConnects)
      bus_.send(pending.createErrorReply(QStringLiteral("org.bluez.Error.Failed"),
                                         QStringLiteral("aborted")));
    d.pendingConnects.clear();
    d.connected = false;
    d.servicesResolved = false;
    changed(d.path, kDeviceIf,
            {{QStringLiteral("ServicesResolved"), false}, {QStringLiteral("Connected"), false}});
    if (d.battery1Exported) {
      d.battery1Exported = false;
      removed(d.path, {kBatteryIf});
    }
    if (d.gattExported) {
      d.gattExported = false;
      for (auto& s : d.services) {
        for (auto& c : s.chars) {
          c.notifying = false;
          removed(c.path, {kCharIf});
        }
        removed(s.path, {kServiceIf});
      }
    }
  }

  // --- org.bluez.GattCharacteristic1 ---
  bool charCall(const QDBusMessage& m) {
    Device* d = nullptr;
    Characteristic* c = charAt(m.path(), &d);
    if (!c || !d->gattExported) {
      error(m, QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"),
            QStringLiteral("no characteristic"));
      return true;
    }
    const QString shortUuid = c->uuid.mid(4, 4).toUpper();
    if (m.member() == QLatin1String("StartNotify")) {
      record(QStringLiteral("StartNotify %1 %2").arg(d->address, shortUuid));
      reply(m);
      if (!c->notifying) {
        c->notifying = true;
        changed(c->path, kCharIf, {{QStringLiteral("Notifying"), true}});
      }
      return true;
    }
    if (m.member() == QLatin1String("ReadValue")) {
      record(QStringLiteral("ReadValue %1 %2").arg(d->address, shortUuid));
      if (std::exchange(malformedRead_, false)) {
        reply(m, {QStringLiteral("not bytes")});
        return true;
      }
      if (c->uuid == kLevelChar) c->value = QByteArray(1, char(d->level));
      reply(m, {c->value});
      return true;
    }
    error(m, QStringLiteral("org.bluez.Error.NotSupported"), m.member());
    return true;
  }

  // --- control ---
  void setPowered(const QString& path, bool powered) {
    Adapter& a = adapters_[path];
    if (a.powered == powered) return;
    a.powered = powered;
    if (!powered) {
      for (auto& d : devices_)
        if (d.adapter == path) disconnectDevice(d);
      a.discovering = false;
    }
    QVariantMap props{{QStringLiteral("Powered"), powered}};
    if (!powered) props.insert(QStringLiteral("Discovering"), false);
    changed(path, kAdapterIf, props);
  }
  QString addDevice(const QString& adapterName, const QString& address, const QVariantMap& o) {
    Device d;
    d.adapter = QStringLiteral("/org/bluez/") + adapterName;
    d.address = address.toUpper();
    d.path = d.adapter + QStringLiteral("/dev_") +
             QString(d.address).replace(QLatin1Char(':'), QLatin1Char('_'));
    if (o.contains(QStringLiteral("name"))) d.name = o.value(QStringLiteral("name")).toString();
    d.exported = o.value(QStringLiteral("known"), true).toBool();
    d.connected = o.value(QStringLiteral("connected"), false).toBool();
    d.advertising = o.value(QStringLiteral("advertising"), false).toBool();
    d.pen = o.value(QStringLiteral("pen"), true).toBool();
    d.battery = o.value(QStringLiteral("battery"), QStringLiteral("gatt")).toString();
    d.level = quint8(o.value(QStringLiteral("level"), 100).toUInt());
    d.swap = o.value(QStringLiteral("swap"), false).toBool();
    d.connectMode = o.value(QStringLiteral("connect"), QStringLiteral("ok")).toString();
    d.battery1DelayMs = o.value(QStringLiteral("battery1DelayMs"), -1).toInt();
    d.colorIntervalMs = o.value(QStringLiteral("colorIntervalMs"), 0).toInt();
    int handle = 0x0a;
    auto service = [&](const QString& uuid) {
      GattService s{d.path + QString::asprintf("/service%04x", handle++), uuid, {}};
      return s;
    };
    auto characteristic = [&](const GattService& s, const QString& uuid, QStringList flags) {
      return Characteristic{
          s.path + QString::asprintf("/char%04x", handle++), uuid, flags, {}, false};
    };
    const QStringList notifyFlags{QStringLiteral("notify")};
    const QStringList readFlags{QStringLiteral("read")};
    const bool gattBattery =
        d.battery == QLatin1String("gatt") || d.battery == QLatin1String("both");
    GattService generic = service(longUuid("1801"));
    d.services.append(generic);
    if (d.pen) {
      GattService s = service(kPenService);
      s.chars.append(d.swap ? characteristic(s, kLevelChar, readFlags)
                            : characteristic(s, kColorChar, notifyFlags));
      d.services.append(s);
    }
    if (gattBattery) {
      GattService s = service(kBatteryService);
      s.chars.append(d.swap ? characteristic(s, kColorChar, notifyFlags)
                            : characteristic(s, kLevelChar, readFlags));
      d.services.append(s);
    }
    devices_.append(d);
    Device& stored = devices_.last();
    if (stored.exported) added(stored.path);
    if (stored.connected) {
      stored.gattExported = true;
      stored.servicesResolved = true;
      if (stored.battery == QLatin1String("battery1") || stored.battery == QLatin1String("both"))
        stored.battery1Exported = true;
      if (stored.exported) {
        for (const auto& s : stored.services) {
          added(s.path);
          for (const auto& c : s.chars) added(c.path);
        }
        if (stored.battery1Exported) addedOnly(stored.path, kBatteryIf);
      }
    }
    if (stored.colorIntervalMs > 0) startColourTicker(stored.address, stored.colorIntervalMs);
    return stored.path;
  }
  bool sendColor(Device& d, const QByteArray& packet) {
    if (!d.connected || !d.gattExported) return false;
    for (auto& s : d.services)
      for (auto& c : s.chars)
        if (c.uuid == kColorChar && c.notifying) {
          c.value = packet;
          changed(c.path, kCharIf, {{QStringLiteral("Value"), packet}});
          return true;
        }
    return false;
  }
  // Packet i: byte 0 = i & 0xFF, red/green/blue from i, bytes 4-7 = i (little
  // endian), bytes 8-15 = CLOCK_MONOTONIC nanoseconds at emission.
  static QByteArray stampedPacket(quint32 i) {
    QByteArray p(16, '\0');
    p[0] = char(i & 0xFF);
    p[1] = char((i * 7) & 0xFF);
    p[2] = char((i * 13) & 0xFF);
    p[3] = char((i * 29) & 0xFF);
    for (int b = 0; b < 4; ++b) p[4 + b] = char((i >> (8 * b)) & 0xFF);
    const quint64 now = monotonicNs();
    for (int b = 0; b < 8; ++b) p[8 + b] = char((now >> (8 * b)) & 0xFF);
    return p;
  }
  void startBurst(const QString& address, quint32 count, quint32 intervalUs) {
    auto* timer = new QTimer;
    timer->setTimerType(Qt::PreciseTimer);
    timer->setInterval(std::max<quint32>(1, intervalUs / 1000));
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    auto sent = std::make_shared<quint32>(0);
    QObject::connect(
        timer, &QTimer::timeout, [this, address, count, intervalUs, timer, clock, sent] {
          // Every packet that is due goes out, so the average rate holds.
          const quint64 due =
              std::min<quint64>(count, clock->nsecsElapsed() / (quint64(intervalUs) * 1000) + 1);
          Device* d = deviceByAddress(address);
          while (*sent < due && d) {
            sendColor(*d, stampedPacket(*sent));
            ++*sent;
          }
          if (*sent >= count || !d) {
            timer->stop();
            timer->deleteLater();
          }
        });
    timer->start();
  }
  void startColourTicker(const QString& address, int intervalMs) {
    auto* timer = new QTimer;
    auto n = std::make_shared<int>(0);
    QObject::connect(timer, &QTimer::timeout, [this, address, n] {
      static const char* const palette[] = {"01FF8000", "0100A0FF", "0133CC66", "01FFFFFF",
                                            "01C0182A"};
      if (Device* d = deviceByAddress(address))
        if (sendColor(*d, QByteArray::fromHex(palette[*n % 5]))) ++*n;
    });
    timer->start(intervalMs);
  }
  void malformedSignals() {
    // Wrong signatures.
    signal(QStringLiteral("/"), kObjMgrIf, QStringLiteral("InterfacesAdded"),
           {QStringLiteral("x")});
    signal(QStringLiteral("/"), kObjMgrIf, QStringLiteral("InterfacesRemoved"), {42});
    for (const QString& path : exportedPaths())
      signal(path, kPropsIf, QStringLiteral("PropertiesChanged"), {QStringLiteral("only one")});
    // Right signatures, wrong property types.
    for (const auto& a : adapters_)
      changed(a.path, kAdapterIf, {{QStringLiteral("Powered"), QStringLiteral("yes")}});
    for (auto& d : devices_) {
      if (!d.exported) continue;
      changed(d.path, kDeviceIf,
              {{QStringLiteral("Connected"), QStringLiteral("no")},
               {QStringLiteral("UUIDs"), 7},
               {QStringLiteral("ServicesResolved"), 1}});
      for (auto& s : d.services)
        for (auto& c : s.chars)
          if (d.gattExported)
            changed(c.path, kCharIf, {{QStringLiteral("Value"), QStringLiteral("FF0000")}});
      if (d.battery1Exported)
        changed(d.path, kBatteryIf, {{QStringLiteral("Percentage"), QStringLiteral("full")}});
    }
    // A device whose address is not text, and one under no adapter.
    InterfaceMap odd{{kDeviceIf,
                      {{QStringLiteral("Address"), 12},
                       {QStringLiteral("Name"), QStringLiteral("quilla odd")}}}};
    signal(QStringLiteral("/"), kObjMgrIf, QStringLiteral("InterfacesAdded"),
           {QVariant::fromValue(QDBusObjectPath(QStringLiteral("/org/bluez/hci0/dev_odd"))),
            QVariant::fromValue(odd)});
    signal(QStringLiteral("/"), kObjMgrIf, QStringLiteral("InterfacesAdded"),
           {QVariant::fromValue(QDBusObjectPath(QStringLiteral("/elsewhere"))),
            QVariant::fromValue(odd)});
  }

  bool control(const QDBusMessage& m) {
    const QVariantList a = m.arguments();
    const QString member = m.member();
    if (member == QLatin1String("AddAdapter")) {
      const QString path = QStringLiteral("/org/bluez/") + a.value(0).toString();
      adapters_.insert(
          path, makeAdapter(path, QStringLiteral("00:11:22:33:44:%1").arg(adapters_.size() + 55),
                            a.value(1).toBool()));
      added(path);
      reply(m, {QVariant::fromValue(QDBusObjectPath(path))});
    } else if (member == QLatin1String("RemoveAdapter")) {
      const QString path = QStringLiteral("/org/bluez/") + a.value(0).toString();
      for (auto& d : devices_)
        if (d.adapter == path) disconnectDevice(d);
      for (qsizetype i = devices_.size() - 1; i >= 0; --i)
        if (devices_[i].adapter == path) {
          if (devices_[i].exported) removed(devices_[i].path, {kDeviceIf});
          devices_.removeAt(i);
        }
      adapters_.remove(path);
      removed(path, {kAdapterIf});
      reply(m);
    } else if (member == QLatin1String("SetPowered")) {
      setPowered(QStringLiteral("/org/bluez/") + a.value(0).toString(), a.value(1).toBool());
      reply(m);
    } else if (member == QLatin1String("AddDevice")) {
      const QString path = addDevice(a.value(0).toString(), a.value(1).toString(),
                                     qdbus_cast<QVariantMap>(a.value(2)));
      reply(m, {QVariant::fromValue(QDBusObjectPath(path))});
    } else if (member == QLatin1String("SendColor")) {
      Device* d = deviceByAddress(a.value(0).toString());
      reply(m, {d != nullptr && sendColor(*d, a.value(1).toByteArray())});
    } else if (member == QLatin1String("SendBurst")) {
      startBurst(a.value(0).toString(), a.value(1).toUInt(), a.value(2).toUInt());
      reply(m);
    } else if (member == QLatin1String("SetBattery")) {
      if (Device* d = deviceByAddress(a.value(0).toString())) {
        d->level = quint8(a.value(1).toUInt());
        if (d->battery1Exported)
          changed(d->path, kBatteryIf,
                  {{QStringLiteral("Percentage"), QVariant::fromValue(uchar(d->level))}});
      }
      reply(m);
    } else if (member == QLatin1String("Disconnect")) {
      if (Device* d = deviceByAddress(a.value(0).toString())) disconnectDevice(*d);
      reply(m);
    } else if (member == QLatin1String("SetConnectMode")) {
      if (Device* d = deviceByAddress(a.value(0).toString()))
        d->connectMode = a.value(1).toString();
      reply(m);
    } else if (member == QLatin1String("Calls")) {
      reply(m, {calls_});
    } else if (member == QLatin1String("CallTimes")) {
      QStringList times;
      for (const qint64 t : callTimes_) times << QString::number(t);
      reply(m, {times});
    } else if (member == QLatin1String("ClearCalls")) {
      calls_.clear();
      callTimes_.clear();
      reply(m);
    } else if (member == QLatin1String("ReleaseBluez")) {
      reply(m);
      bus_.unregisterService(QStringLiteral("org.bluez"));
    } else if (member == QLatin1String("AcquireBluez")) {
      reply(m, {bus_.registerService(QStringLiteral("org.bluez"))});
    } else if (member == QLatin1String("Malformed")) {
      const QString kind = a.value(0).toString();
      if (kind == QLatin1String("managed-objects")) malformedObjects_ = true;
      if (kind == QLatin1String("read")) malformedRead_ = true;
      if (kind == QLatin1String("connect")) malformedConnect_ = true;
      if (kind == QLatin1String("signals")) malformedSignals();
      reply(m);
    } else if (member == QLatin1String("Quit")) {
      reply(m);
      QTimer::singleShot(0, qApp, &QCoreApplication::quit);
    } else {
      error(m, QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"), member);
    }
    return true;
  }

  QDBusConnection bus_;
  QMap<QString, Adapter> adapters_;
  QList<Device> devices_;
  QStringList calls_;
  QList<qint64> callTimes_;  // parallel to calls_
  QElapsedTimer clock_ = [] {
    QElapsedTimer started;
    started.start();
    return started;
  }();
  bool malformedObjects_ = false;
  bool malformedRead_ = false;
  bool malformedConnect_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  qDBusRegisterMetaType<InterfaceMap>();
  QString pen;
  int intervalMs = 1000;
  const QStringList args = app.arguments();
  for (qsizetype i = 1; i + 1 < args.size(); ++i) {
    if (args[i] == QLatin1String("--pen")) pen = args[i + 1];
    if (args[i] == QLatin1String("--interval-ms")) intervalMs = args[i + 1].toInt();
  }
  QDBusConnection bus = QDBusConnection::systemBus();
  if (!bus.isConnected()) {
    std::fprintf(stderr, "fake_bluez: no system bus: %s\n", qPrintable(bus.lastError().message()));
    return 1;
  }
  FakeBluez fake(bus);
  if (!pen.isEmpty()) fake.addPen(pen, intervalMs);
  if (!bus.registerVirtualObject(QStringLiteral("/"), &fake, QDBusConnection::SubPath) ||
      !bus.registerService(QStringLiteral("org.tintwell.FakeBluez")) ||
      !bus.registerService(QStringLiteral("org.bluez"))) {
    std::fprintf(stderr, "fake_bluez: cannot serve: %s\n", qPrintable(bus.lastError().message()));
    return 1;
  }
  std::printf("ready\n");
  std::fflush(stdout);
  return app.exec();
}
