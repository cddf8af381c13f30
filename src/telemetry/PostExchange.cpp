#include "telemetry/PostExchange.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

namespace tw {

namespace {

QJsonValue bytes(const QByteArray& data) { return QString::fromLatin1(data.toBase64()); }

std::optional<QByteArray> bytesFrom(const QJsonValue& value) {
  if (!value.isString()) return std::nullopt;
  auto decoded = QByteArray::fromBase64Encoding(value.toString().toLatin1(),
                                                QByteArray::AbortOnBase64DecodingErrors);
  if (!decoded) return std::nullopt;
  return *decoded;
}

std::optional<QJsonObject> objectFrom(const QByteArray& text) {
  QJsonParseError error{};
  const QJsonDocument document = QJsonDocument::fromJson(text, &error);
  if (error.error != QJsonParseError::NoError || !document.isObject()) return std::nullopt;
  return document.object();
}

}  // namespace

QByteArray encodeUsageRequest(const UsageRequest& request) {
  QJsonArray headers;
  for (const auto& [name, value] : request.headers)
    headers.append(QJsonArray{bytes(name), bytes(value)});
  const QJsonObject object{{QStringLiteral("url"), request.url.toString(QUrl::FullyEncoded)},
                           {QStringLiteral("method"), bytes(request.method)},
                           {QStringLiteral("headers"), headers},
                           {QStringLiteral("body"), bytes(request.body)},
                           {QStringLiteral("timeoutMs"), request.timeoutMs}};
  return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<UsageRequest> decodeUsageRequest(const QByteArray& text) {
  const auto object = objectFrom(text);
  if (!object) return std::nullopt;
  UsageRequest request;
  const QJsonValue url = object->value(QStringLiteral("url"));
  const auto method = bytesFrom(object->value(QStringLiteral("method")));
  const auto body = bytesFrom(object->value(QStringLiteral("body")));
  const QJsonValue headers = object->value(QStringLiteral("headers"));
  const QJsonValue timeout = object->value(QStringLiteral("timeoutMs"));
  if (!url.isString() || !method || !body || !headers.isArray() || !timeout.isDouble())
    return std::nullopt;
  request.url = QUrl(url.toString(), QUrl::StrictMode);
  if (!request.url.isValid()) return std::nullopt;
  request.method = *method;
  request.body = *body;
  request.timeoutMs = timeout.toInt();
  for (const QJsonValue header : headers.toArray()) {
    const QJsonArray pair = header.toArray();
    if (pair.size() != 2) return std::nullopt;
    const auto name = bytesFrom(pair.at(0));
    const auto value = bytesFrom(pair.at(1));
    if (!name || !value) return std::nullopt;
    request.headers.append({*name, *value});
  }
  return request;
}

QByteArray encodeUsageAnswer(const UsageAnswer& answer) {
  QJsonObject object;
  if (answer.data) object.insert(QStringLiteral("data"), bytes(*answer.data));
  if (answer.response)
    object.insert(QStringLiteral("response"),
                  QJsonObject{{QStringLiteral("isHttp"), answer.response->isHttp},
                              {QStringLiteral("statusCode"), answer.response->statusCode},
                              {QStringLiteral("description"), answer.response->description}});
  if (answer.error) object.insert(QStringLiteral("error"), *answer.error);
  return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<UsageAnswer> decodeUsageAnswer(const QByteArray& text) {
  const auto object = objectFrom(text);
  if (!object) return std::nullopt;
  UsageAnswer answer;
  if (object->contains(QStringLiteral("data"))) {
    answer.data = bytesFrom(object->value(QStringLiteral("data")));
    if (!answer.data) return std::nullopt;
  }
  if (object->contains(QStringLiteral("response"))) {
    const QJsonObject response = object->value(QStringLiteral("response")).toObject();
    const QJsonValue isHttp = response.value(QStringLiteral("isHttp"));
    const QJsonValue status = response.value(QStringLiteral("statusCode"));
    const QJsonValue description = response.value(QStringLiteral("description"));
    if (!isHttp.isBool() || !status.isDouble() || !description.isString()) return std::nullopt;
    answer.response = UsageResponse{isHttp.toBool(), status.toInt(), description.toString()};
  }
  if (object->contains(QStringLiteral("error"))) {
    const QJsonValue error = object->value(QStringLiteral("error"));
    if (!error.isString()) return std::nullopt;
    answer.error = error.toString();
  }
  // Every completion carries an answer's head or an error (or both).
  if (!answer.response && !answer.error) return std::nullopt;
  return answer;
}

}  // namespace tw
