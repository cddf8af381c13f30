// tintwell-post: makes one usage post for the application and exits.
// Standard input: the request (telemetry/PostExchange.h); standard output: its
// answer. Exit status 0 with an answer, 2 when the input holds no request.
#include <QCoreApplication>
#include <QFile>
#include <cstdio>

#include "telemetry/PostExchange.h"
#include "telemetry/network/NetworkUsageTransport.h"

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  QFile input;
  if (!input.open(stdin, QIODevice::ReadOnly)) return 2;
  const std::optional<tw::UsageRequest> request = tw::decodeUsageRequest(input.readAll());
  if (!request) {
    std::fputs("tintwell-post: standard input holds no request\n", stderr);
    return 2;
  }
  tw::NetworkUsageTransport transport;
  transport.post(
      *request, [](std::optional<QByteArray> data, std::optional<tw::UsageResponse> response,
                   std::optional<QString> error) {
        const QByteArray answer =
            tw::encodeUsageAnswer({std::move(data), std::move(response), std::move(error)});
        std::fwrite(answer.constData(), 1, static_cast<size_t>(answer.size()), stdout);
        std::fflush(stdout);
        QCoreApplication::quit();
      });
  return QCoreApplication::exec();
}
