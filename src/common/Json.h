#pragma once

#include <QByteArray>
#include <QStringView>
#include <initializer_list>

namespace tw::json {

// A JSON string literal (with its quotes), UTF-8. Escapes as the records' encoder
// does: \" \\ \b \f \n \r \t, other control characters as \u00XX, and, with
// escapeSlash, "/" as "\/" (so "2021/03/04" travels as "2021\/03\/04").
QByteArray quote(QStringView text, bool escapeSlash);

// Builds one pretty-printed JSON object, one member per line, keys in the order
// they are added (QJsonObject would sort them and cannot escape slashes).
class PrettyObject {
 public:
  PrettyObject& add(const char* key, QStringView text);
  PrettyObject& add(const char* key, const QString& text) { return add(key, QStringView(text)); }
  PrettyObject& add(const char* key, bool value);
  PrettyObject& add(const char* key, qint64 value);
  QByteArray finish();

 private:
  void beginMember(const char* key);
  QByteArray out_ = "{";
  bool first_ = true;
};

}  // namespace tw::json
