#include "common/Json.h"

#include <QString>

namespace tw::json {

QByteArray quote(QStringView text, bool escapeSlash) {
  const QByteArray utf8 = text.toUtf8();
  QByteArray out;
  out.reserve(utf8.size() + 2);
  out.append('"');
  for (const char c : utf8) {
    const auto u = static_cast<unsigned char>(c);
    switch (c) {
      case '"':
        out.append("\\\"");
        break;
      case '\\':
        out.append("\\\\");
        break;
      case '\b':
        out.append("\\b");
        break;
      case '\f':
        out.append("\\f");
        break;
      case '\n':
        out.append("\\n");
        break;
      case '\r':
        out.append("\\r");
        break;
      case '\t':
        out.append("\\t");
        break;
      case '/':
        out.append(escapeSlash ? "\\/" : "/");
        break;
      default:
        if (u < 0x20) {
          static constexpr char kHex[] = "0123456789abcdef";
          out.append("\\u00");
          out.append(kHex[u >> 4]);
          out.append(kHex[u & 15]);
        } else {
          out.append(c);
        }
    }
  }
  out.append('"');
  return out;
}

void PrettyObject::beginMember(const char* key) {
  out_.append(first_ ? "\n  \"" : ",\n  \"");
  first_ = false;
  out_.append(key);
  out_.append("\" : ");
}

PrettyObject& PrettyObject::add(const char* key, QStringView text) {
  beginMember(key);
  out_.append(quote(text, true));
  return *this;
}

PrettyObject& PrettyObject::add(const char* key, bool value) {
  beginMember(key);
  out_.append(value ? "true" : "false");
  return *this;
}

PrettyObject& PrettyObject::add(const char* key, qint64 value) {
  beginMember(key);
  out_.append(QByteArray::number(value));
  return *this;
}

QByteArray PrettyObject::finish() {
  out_.append(first_ ? "}" : "\n}");
  return out_;
}

}  // namespace tw::json
