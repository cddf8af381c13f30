// Adobe Swatch Exchange, big-endian throughout:
//   "ASEF", version 1.0 (two uint16), block count (uint32), then blocks of
//   type (uint16), length of what follows (uint32), body.
// A colour block (0x0001) holds the name length in UTF-16 units with its NUL
// (uint16), the UTF-16 name and NUL, a four-byte model, the model's float32
// values and a colour type (uint16: 0 global, 1 spot, 2 normal). 0xC001 opens
// a group (its body a name like a colour's), 0xC002 closes one.

#include <QtEndian>
#include <algorithm>
#include <cmath>
#include <cstring>

#include "library/palette/PaletteFormats.h"

namespace tw::palette {

namespace {

constexpr quint16 kColorBlock = 0x0001;
constexpr quint16 kGroupStart = 0xC001;
constexpr quint16 kNormalColor = 2;

void put16(QByteArray& out, quint16 value) {
  char bytes[2];
  qToBigEndian(value, bytes);
  out.append(bytes, 2);
}

void put32(QByteArray& out, quint32 value) {
  char bytes[4];
  qToBigEndian(value, bytes);
  out.append(bytes, 4);
}

void putFloat(QByteArray& out, float value) {
  quint32 bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  put32(out, bits);
}

// Reads within [data, data + size) only; every read says whether it fitted.
class Reader {
 public:
  Reader(const char* data, qsizetype size) : data_(data), size_(size) {}
  qsizetype remaining() const { return size_ - pos_; }
  bool u16(quint16& value) {
    if (remaining() < 2) return false;
    value = qFromBigEndian<quint16>(data_ + pos_);
    pos_ += 2;
    return true;
  }
  bool u32(quint32& value) {
    if (remaining() < 4) return false;
    value = qFromBigEndian<quint32>(data_ + pos_);
    pos_ += 4;
    return true;
  }
  bool f32(float& value) {
    quint32 bits = 0;
    if (!u32(bits)) return false;
    std::memcpy(&value, &bits, sizeof value);
    return true;
  }
  bool bytes(qsizetype count, const char*& start) {
    if (count < 0 || remaining() < count) return false;
    start = data_ + pos_;
    pos_ += count;
    return true;
  }

 private:
  const char* data_;
  qsizetype size_;
  qsizetype pos_ = 0;
};

// A block's name: the length (UTF-16 units, NUL included) and the units.
// Everything from the first NUL on is dropped.
bool readName(Reader& in, QString& name) {
  quint16 units = 0;
  const char* start = nullptr;
  if (!in.u16(units) || !in.bytes(qsizetype(units) * 2, start)) return false;
  name.resize(units);
  for (quint16 i = 0; i < units; ++i)
    name[i] = QChar(qFromBigEndian<quint16>(start + 2 * qsizetype(i)));
  const qsizetype nul = name.indexOf(QChar(0));
  if (nul >= 0) name.truncate(nul);
  return true;
}

int toChannel(float fraction) {
  const long value = std::lround(double(fraction) * 255.0);
  return int(std::clamp(value, 0L, 255L));
}

ReadResult failure(const QString& why) { return {std::nullopt, why}; }

}  // namespace

QByteArray writeAse(const Palette& palette) {
  QByteArray out = "ASEF";
  put16(out, 1);
  put16(out, 0);
  put32(out, quint32(palette.swatches.size()));
  for (const Swatch& swatch : palette.swatches) {
    const QString name = swatch.name;
    // A name longer than the 16-bit length allows is cut (with its NUL).
    const qsizetype units = std::min<qsizetype>(name.size(), 0xFFFE);
    QByteArray body;
    put16(body, quint16(units + 1));
    for (qsizetype i = 0; i < units; ++i) put16(body, name[i].unicode());
    put16(body, 0);
    body.append("RGB ", 4);
    putFloat(body, float(swatch.red) / 255.0f);
    putFloat(body, float(swatch.green) / 255.0f);
    putFloat(body, float(swatch.blue) / 255.0f);
    put16(body, kNormalColor);
    put16(out, kColorBlock);
    put32(out, quint32(body.size()));
    out.append(body);
  }
  return out;
}

// Groups are flattened into one list; the first group's name, if any, names
// the palette (the files Tintwell writes have none, so their name is empty).
// Models: RGB as it is; Gray as equal channels; CMYK by the naive
// (1 - C)(1 - K) per channel, without a colour profile; LAB swatches, which
// would need a profile-exact conversion, and unknown models are skipped. A
// length or count that runs past the input is an error: the loop advances by
// at least six bytes a block and allocates no more than the input holds.
ReadResult readAse(const QByteArray& bytes) {
  Reader in(bytes.constData(), bytes.size());
  const char* magic = nullptr;
  quint16 major = 0;
  quint16 minor = 0;
  quint32 count = 0;
  if (!in.bytes(4, magic) || std::memcmp(magic, "ASEF", 4) != 0) {
    return failure(QStringLiteral("not a swatch exchange file: no \"ASEF\" at the start"));
  }
  if (!in.u16(major) || !in.u16(minor) || !in.u32(count)) {
    return failure(QStringLiteral("the header is cut short"));
  }
  if (major != 1) return failure(QStringLiteral("version %1.%2 is not read").arg(major).arg(minor));
  if (quint64(count) * 6 > quint64(in.remaining())) {
    return failure(
        QStringLiteral("%1 blocks announced, the file is too short for them").arg(count));
  }

  Palette palette;
  bool named = false;
  for (quint32 block = 0; block < count; ++block) {
    quint16 type = 0;
    quint32 length = 0;
    const char* body = nullptr;
    if (!in.u16(type) || !in.u32(length) || !in.bytes(qsizetype(length), body)) {
      return failure(QStringLiteral("block %1 runs past the end of the file").arg(block + 1));
    }
    Reader blockIn(body, qsizetype(length));
    if (type == kGroupStart) {
      QString name;
      if (!readName(blockIn, name)) {
        return failure(
            QStringLiteral("block %1: the group name runs past the block").arg(block + 1));
      }
      if (!named) palette.name = name;
      named = true;
      continue;
    }
    if (type != kColorBlock) continue;  // group ends (0xC002) and unknown blocks

    Swatch swatch;
    const char* model = nullptr;
    if (!readName(blockIn, swatch.name) || !blockIn.bytes(4, model)) {
      return failure(QStringLiteral("block %1: the colour runs past the block").arg(block + 1));
    }
    int values = 0;
    if (std::memcmp(model, "RGB ", 4) == 0) {
      values = 3;
    } else if (std::memcmp(model, "Gray", 4) == 0) {
      values = 1;
    } else if (std::memcmp(model, "CMYK", 4) == 0) {
      values = 4;
    } else {
      continue;  // LAB or unknown: skipped
    }
    float v[4] = {0, 0, 0, 0};
    for (int k = 0; k < values; ++k) {
      if (!blockIn.f32(v[k])) {
        return failure(QStringLiteral("block %1: the colour runs past the block").arg(block + 1));
      }
      if (!std::isfinite(v[k])) {
        return failure(QStringLiteral("block %1: a colour value is not a number").arg(block + 1));
      }
    }
    // The colour type that follows is not needed: spot and global colours
    // are taken as plain ones.
    if (values == 3) {
      swatch.red = toChannel(v[0]);
      swatch.green = toChannel(v[1]);
      swatch.blue = toChannel(v[2]);
    } else if (values == 1) {
      swatch.red = swatch.green = swatch.blue = toChannel(v[0]);
    } else {
      const float white = 1.0f - std::clamp(v[3], 0.0f, 1.0f);
      swatch.red = toChannel((1.0f - std::clamp(v[0], 0.0f, 1.0f)) * white);
      swatch.green = toChannel((1.0f - std::clamp(v[1], 0.0f, 1.0f)) * white);
      swatch.blue = toChannel((1.0f - std::clamp(v[2], 0.0f, 1.0f)) * white);
    }
    palette.swatches.push_back(std::move(swatch));
  }
  return {std::move(palette), {}};
}

}  // namespace tw::palette
