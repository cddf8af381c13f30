#pragma once

// A real local HTTPS server for the telemetry tests (telemetry_server.py under
// /usr/bin/python3), with a test CA made by the openssl command at test time.

#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <stdexcept>
#include <utility>

#include "tests/support/ChildProcess.h"

namespace tw::testing {

// Runs the event loop until `done` holds or `timeoutMs` passes; the result of
// the last check.
inline bool pumpUntil(const std::function<bool()>& done, int timeoutMs) {
  QDeadlineTimer deadline(timeoutMs);
  while (!done()) {
    if (deadline.hasExpired()) return done();
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QCoreApplication::sendPostedEvents();
  }
  return true;
}

// Runs the event loop for `ms` whatever happens.
inline void pumpFor(int ms) {
  QDeadlineTimer deadline(ms);
  while (!deadline.hasExpired()) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

inline void runOpenssl(const QStringList& args, const QString& workDir) {
  QProcess openssl;
  openssl.setWorkingDirectory(workDir);
  openssl.start(QStringLiteral("openssl"), args);
  if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0)
    throw std::runtime_error("openssl failed: " + args.join(u' ').toStdString() + "\n" +
                             openssl.readAllStandardError().toStdString());
}

// A CA and a server certificate for localhost and 127.0.0.1 signed by it.
class TestCertificates {
 public:
  explicit TestCertificates(const QString& caName = QStringLiteral("Tintwell Test CA")) {
    const QString d = dir_.path();
    const QStringList ec = {
        QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
        QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes")};
    runOpenssl(
        QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + ec +
            QStringList{
                QStringLiteral("-keyout"), QStringLiteral("ca.key"), QStringLiteral("-out"),
                QStringLiteral("ca.pem"), QStringLiteral("-days"), QStringLiteral("2"),
                QStringLiteral("-subj"), QStringLiteral("/CN=") + caName, QStringLiteral("-addext"),
                QStringLiteral("basicConstraints=critical,CA:TRUE"), QStringLiteral("-addext"),
                QStringLiteral("keyUsage=critical,keyCertSign,cRLSign")},
        d);
    runOpenssl(QStringList{QStringLiteral("req")} + ec +
                   QStringList{QStringLiteral("-keyout"), QStringLiteral("server.key"),
                               QStringLiteral("-out"), QStringLiteral("server.csr"),
                               QStringLiteral("-subj"), QStringLiteral("/CN=localhost")},
               d);
    QFile ext(d + QStringLiteral("/server.ext"));
    ext.open(QIODevice::WriteOnly);
    ext.write(
        "basicConstraints=CA:FALSE\n"
        "keyUsage=critical,digitalSignature\n"
        "extendedKeyUsage=serverAuth\n"
        "subjectAltName=DNS:localhost,IP:127.0.0.1\n");
    ext.close();
    runOpenssl(
        {QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"),
         QStringLiteral("server.csr"), QStringLiteral("-CA"), QStringLiteral("ca.pem"),
         QStringLiteral("-CAkey"), QStringLiteral("ca.key"), QStringLiteral("-CAcreateserial"),
         QStringLiteral("-out"), QStringLiteral("server.pem"), QStringLiteral("-days"),
         QStringLiteral("2"), QStringLiteral("-extfile"), QStringLiteral("server.ext")},
        d);
  }
  QString caPath() const { return dir_.filePath(QStringLiteral("ca.pem")); }
  QString certPath() const { return dir_.filePath(QStringLiteral("server.pem")); }
  QString keyPath() const { return dir_.filePath(QStringLiteral("server.key")); }

 private:
  QTemporaryDir dir_;
};

struct ServerEvent {
  QString event;  // "request" or "tls_error"
  QString method;
  QString path;
  QList<std::pair<QString, QString>> headers;
  QByteArray body;
  QString answer;  // 200, 201, 500, hang, drop
  QString detail;

  QString header(const QString& name) const {
    for (const auto& [key, value] : headers)
      if (key.compare(name, Qt::CaseInsensitive) == 0) return value;
    return {};
  }
  bool hasHeader(const QString& name) const {
    for (const auto& header : headers)
      if (header.first.compare(name, Qt::CaseInsensitive) == 0) return true;
    return false;
  }
  bool answeredOk() const {
    return answer == QLatin1String("200") || answer == QLatin1String("201");
  }
};

class TelemetryTestServer {
 public:
  explicit TelemetryTestServer(const TestCertificates& certificates) {
    process_.setProgram(QStringLiteral("/usr/bin/python3"));
    process_.setArguments({QStringLiteral(TW_TELEMETRY_SERVER_SCRIPT), certificates.certPath(),
                           certificates.keyPath()});
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    endWithParent(process_);
    process_.start();
    if (!process_.waitForStarted(10000)) throw std::runtime_error("test server did not start");
    QDeadlineTimer deadline(20000);
    while (port_ == 0 && !deadline.hasExpired()) {
      process_.waitForReadyRead(100);
      readEvents();
    }
    if (port_ == 0) throw std::runtime_error("test server did not report its port");
  }
  ~TelemetryTestServer() {
    process_.kill();
    process_.waitForFinished(5000);
  }

  int port() const { return port_; }
  QString baseUrl() const { return QStringLiteral("https://localhost:%1").arg(port_); }

  // Control lines (see telemetry_server.py); waits for the server's ack.
  void command(const QString& line) {
    const int acks = acks_;
    process_.write((line + u'\n').toUtf8());
    process_.waitForBytesWritten(5000);
    QDeadlineTimer deadline(10000);
    while (acks_ == acks && !deadline.hasExpired()) {
      process_.waitForReadyRead(50);
      readEvents();
    }
  }

  // Events so far (reads what the server has printed without blocking).
  const QList<ServerEvent>& events() {
    readEvents();
    return events_;
  }
  QList<ServerEvent> requests(const QString& path = {}) {
    QList<ServerEvent> out;
    for (const ServerEvent& e : events())
      if (e.event == QLatin1String("request") && (path.isEmpty() || e.path == path)) out << e;
    return out;
  }
  // Hands over the events so far and forgets them (for long runs).
  QList<ServerEvent> takeEvents() {
    readEvents();
    return std::exchange(events_, {});
  }
  bool waitForRequests(int count, int timeoutMs = 20000) {
    return pumpUntil([&] { return requests().size() >= count; }, timeoutMs);
  }

 private:
  void readEvents() {
    while (process_.canReadLine()) {
      const QJsonObject o = QJsonDocument::fromJson(process_.readLine()).object();
      const QString kind = o.value(QStringLiteral("event")).toString();
      if (kind == QLatin1String("port")) {
        port_ = o.value(QStringLiteral("port")).toInt();
        continue;
      }
      if (kind == QLatin1String("ack")) {
        ++acks_;
        continue;
      }
      ServerEvent e;
      e.event = kind;
      e.method = o.value(QStringLiteral("method")).toString();
      e.path = o.value(QStringLiteral("path")).toString();
      for (const QJsonValue& h : o.value(QStringLiteral("headers")).toArray())
        e.headers.append({h.toArray().at(0).toString(), h.toArray().at(1).toString()});
      e.body = QByteArray::fromBase64(o.value(QStringLiteral("body")).toString().toLatin1());
      e.answer = o.value(QStringLiteral("answer")).toString();
      e.detail = o.value(QStringLiteral("detail")).toString();
      events_.append(e);
    }
  }

  QProcess process_;
  int port_ = 0;
  int acks_ = 0;
  QList<ServerEvent> events_;
};

}  // namespace tw::testing
