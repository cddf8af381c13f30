#pragma once

#include <QString>
#include <QUuid>
#include <QtGlobal>

namespace tw::pen {

// Bluetooth UUIDs are plain QUuids. A 16-bit UUID is held in its 128-bit form on
// the Bluetooth base UUID (0000xxxx-0000-1000-8000-00805F9B34FB), so comparing
// QUuids compares by value whichever form a peer used.
QUuid uuidFrom16Bit(quint16 shortUuid);

// Parses "0x1F16", "1F16", "00001F1F" or a full 36-character UUID text (with
// or without braces, any case). Returns a null QUuid when the text is none of them.
QUuid parseBluetoothUuid(const QString& text);

// Canonical text: 36 characters, upper-case hexadecimal, 8-4-4-4-12, no braces.
QString canonicalUuidText(const QUuid& uuid);

// "1F16" for a UUID on the base UUID, the canonical text otherwise.
QString shortUuidText(const QUuid& uuid);

// The pen's GATT layout.
const QUuid& penServiceUUID();        // 0x1F1F
const QUuid& penColorCharUUID();      // 0x1F16
const QUuid& batteryServiceUUID();    // 0x180F
const QUuid& batteryLevelCharUUID();  // 0x2A19

}  // namespace tw::pen
