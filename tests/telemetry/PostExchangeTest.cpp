#include "telemetry/PostExchange.h"

#include <gtest/gtest.h>

namespace tw {
namespace {

QByteArray everyByte() {
  QByteArray bytes;
  for (int b = 0; b < 256; ++b) bytes.append(static_cast<char>(b));
  return bytes;
}

TEST(PostExchangeTest, ARequestCrossesUnchangedWithAnyBytesInItsBodyAndHeaders) {
  UsageRequest request;
  request.url = QUrl(QStringLiteral("https://localhost:8443/api/color_usage?a=1&b=%2F"));
  request.method = "PATCH";
  request.headers = {{"Content-Type", "application/json"}, {"X-Raw", everyByte()}};
  request.body = everyByte() + R"({"colors":["#FAFAFA"]})";
  request.timeoutMs = 12345;

  const auto decoded = decodeUsageRequest(encodeUsageRequest(request));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->url, request.url);
  EXPECT_EQ(decoded->method, request.method);
  EXPECT_EQ(decoded->headers, request.headers);
  EXPECT_EQ(decoded->body, request.body);
  EXPECT_EQ(decoded->timeoutMs, request.timeoutMs);
}

TEST(PostExchangeTest, AnAnswerWithItsHeadAndBodyCrossesUnchanged) {
  const UsageAnswer answer{
      everyByte(), UsageResponse{true, 418, QStringLiteral("<HTTPResponse> { 茶 }")}, std::nullopt};
  const auto decoded = decodeUsageAnswer(encodeUsageAnswer(answer));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->data, answer.data);
  ASSERT_TRUE(decoded->response);
  EXPECT_TRUE(decoded->response->isHttp);
  EXPECT_EQ(decoded->response->statusCode, 418);
  EXPECT_EQ(decoded->response->description, answer.response->description);
  EXPECT_FALSE(decoded->error);
}

TEST(PostExchangeTest, AFailureKeepsItsErrorAndHasNoBodyOrHead) {
  const UsageAnswer answer{std::nullopt, std::nullopt, QStringLiteral("Connection refused")};
  const auto decoded = decodeUsageAnswer(encodeUsageAnswer(answer));
  ASSERT_TRUE(decoded);
  EXPECT_FALSE(decoded->data);
  EXPECT_FALSE(decoded->response);
  EXPECT_EQ(decoded->error, answer.error);
}

TEST(PostExchangeTest, AnEmptyBodyIsPresentAndEmptyNotMissing) {
  const UsageAnswer answer{QByteArray(), UsageResponse{true, 204, QString()}, std::nullopt};
  const auto decoded = decodeUsageAnswer(encodeUsageAnswer(answer));
  ASSERT_TRUE(decoded);
  ASSERT_TRUE(decoded->data);
  EXPECT_TRUE(decoded->data->isEmpty());
}

TEST(PostExchangeTest, TextThatIsNoRequestDecodesToNothing) {
  for (const QByteArray& text :
       {QByteArray(), QByteArray("[]"), QByteArray("{}"), QByteArray("{\"url\":1}"),
        QByteArray(R"({"url":"https://x","method":"UE9TVA==","headers":[],"body":"*not base64*",)"
                   R"("timeoutMs":1})"),
        QByteArray(R"({"url":"https://x","method":"UE9TVA==","headers":[["QQ=="]],"body":"",)"
                   R"("timeoutMs":1})")})
    EXPECT_FALSE(decodeUsageRequest(text)) << text.toStdString();
}

TEST(PostExchangeTest, AnAnswerWithNeitherHeadNorErrorDecodesToNothing) {
  EXPECT_FALSE(decodeUsageAnswer("{}"));
  EXPECT_FALSE(decodeUsageAnswer(R"({"data":"e30="})"));
  EXPECT_FALSE(decodeUsageAnswer(R"({"error":3})"));
  EXPECT_FALSE(decodeUsageAnswer("not json"));
}

}  // namespace
}  // namespace tw
