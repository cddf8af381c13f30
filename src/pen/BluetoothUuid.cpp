#include "pen/BluetoothUuid.h"

namespace tw::pen {

namespace {
// The Bluetooth base UUID with the 16-bit part zeroed.
constexpr uint kBaseData1 = 0x00000000;
constexpr ushort kBaseData2 = 0x0000;
constexpr ushort kBaseData3 = 0x1000;
constexpr uchar kBaseData4[8] = {0x80, 0x00, 0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB};

bool isOnBase(const QUuid& uuid) {
  return (uuid.data1 & 0xFFFF0000u) == kBaseData1 && uuid.data2 == kBaseData2 &&
         uuid.data3 == kBaseData3 &&
         std::equal(std::begin(kBaseData4), std::end(kBaseData4), std::begin(uuid.data4));
}
}  // namespace

QUuid uuidFrom16Bit(quint16 shortUuid) {
  return QUuid(kBaseData1 | shortUuid, kBaseData2, kBaseData3, kBaseData4[0], kBaseData4[1],
               kBaseData4[2], kBaseData4[3], kBaseData4[4], kBaseData4[5], kBaseData4[6],
               kBaseData4[7]);
}

QUuid parseBluetoothUuid(const QString& text) {
  QString t = text.trimmed();
  if (t.startsWith(QLatin1String("0x"), Qt::CaseInsensitive)) t = t.mid(2);
  if (t.size() == 4 || t.size() == 8) {
    bool ok = false;
    const uint value = t.toUInt(&ok, 16);
    if (!ok) return {};
    QUuid uuid = uuidFrom16Bit(0);
    uuid.data1 = value;
    return uuid;
  }
  return QUuid::fromString(t);
}

QString canonicalUuidText(const QUuid& uuid) {
  return uuid.toString(QUuid::WithoutBraces).toUpper();
}

QString shortUuidText(const QUuid& uuid) {
  if (isOnBase(uuid)) return QString::asprintf("%04X", uuid.data1);
  return canonicalUuidText(uuid);
}

const QUuid& penServiceUUID() {
  static const QUuid uuid =
      parseBluetoothUuid(QStringLiteral("00001F1F-0000-1000-8000-00805F9B34FB"));
  return uuid;
}
const QUuid& penColorCharUUID() {
  static const QUuid uuid = parseBluetoothUuid(QStringLiteral("0x1F16"));
  return uuid;
}
const QUuid& batteryServiceUUID() {
  static const QUuid uuid = parseBluetoothUuid(QStringLiteral("0x180F"));
  return uuid;
}
const QUuid& batteryLevelCharUUID() {
  static const QUuid uuid = parseBluetoothUuid(QStringLiteral("0x2A19"));
  return uuid;
}

}  // namespace tw::pen
