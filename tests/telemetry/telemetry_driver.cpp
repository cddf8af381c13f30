// A small process around the real quit handshake and telemetry sender, driven
// by lines on standard input, so tests can watch its output, quit it, signal it
// and run it in a network namespace of its own.
//
//   color R G B   count a pen colour on the "Orlo.Tintwell" thread
//   burst N       count N distinct pen colours on that thread, 200 us apart,
//                 without waiting; the colours number on from the last burst's
//                 (1, 2, ... as RGB), so no two bursts share one; "BURST DONE"
//                 at the end
//   screen R G B  count a screen pick on the main thread
//   push PS|AI    count a push into the current application record
//   quit          ask the application to terminate
//   state         print "STATE device=N screen=N colorDone=0|1 appDone=0|1 PS=N AI=N"
//
// Prints "READY" once set up; the exit code is the event loop's.

#include <unistd.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QString>
#include <QThread>
#include <future>

#include "app/AppDelegate.h"
#include "app/ClosingHandler.h"
#include "app/TerminationSignals.h"
#include "bridge/Commander.h"
#include "common/Log.h"
#include "pen/Mailbox.h"
#include "telemetry/API_Logger.h"
#include "telemetry/network/NetworkUsageTransport.h"

namespace {

QString stateLine(tw::API_Logger& logger, tw::Commander& commander) {
  const auto color = logger.colorRecord()->read();
  const auto app = commander.tempApplicationRecord()->read();
  return QStringLiteral("STATE device=%1 screen=%2 colorDone=%3 appDone=%4 PS=%5 AI=%6")
      .arg(color.counter_device)
      .arg(color.counter_screen)
      .arg(logger.bColorApiDone ? 1 : 0)
      .arg(logger.bAppUsageApiDone ? 1 : 0)
      .arg(app.PS)
      .arg(app.AI);
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);

  // Work for the pen thread goes through a mailbox (a lock ThreadSanitizer
  // sees) rather than inside Qt's queued calls; both exist before the thread
  // starts, so the start publishes them.
  QThread penThread;
  penThread.setObjectName(QStringLiteral("Orlo.Tintwell"));
  tw::pen::Mailbox penQueue;
  penQueue.moveToThread(&penThread);
  // Qt's own wait for a thread's end is invisible to ThreadSanitizer; this is
  // the thread's last word, so what it touched may be freed after it.
  std::promise<void> penEnded;
  QObject::connect(&penThread, &QThread::finished, [&penEnded] { penEnded.set_value(); });
  penThread.start();

  tw::AppDelegate delegate;
  tw::Commander commander;
  tw::API_Logger logger;
  logger.parentCommander = &commander;
  logger.setTransport(tw::makeNetworkUsageTransport());
  logger.setTerminationReply(&delegate);
  tw::ClosingHandler closing(logger, delegate);
  closing.observe();
  tw::installTerminationSignalHandlers(delegate);
  logger.startLogging();
  // The panel's start-up colour: seen, never counted.
  logger.countColor(250, 250, 250);

  QString pending;
  int burstNumbered = 0;
  QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
  QObject::connect(&input, &QSocketNotifier::activated, [&] {
    char buffer[4096];
    const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (got <= 0) {
      input.setEnabled(false);
      return;
    }
    pending += QString::fromUtf8(buffer, got);
    qsizetype end;
    while ((end = pending.indexOf(u'\n')) >= 0) {
      const QStringList words = pending.left(end).split(u' ', Qt::SkipEmptyParts);
      pending.remove(0, end + 1);
      if (words.isEmpty()) continue;
      const QString& verb = words[0];
      if (verb == QLatin1String("color") && words.size() == 4) {
        const int r = words[1].toInt(), g = words[2].toInt(), b = words[3].toInt();
        std::promise<void> counted;
        penQueue.post([&logger, &counted, r, g, b] {
          logger.countColor(r, g, b);
          counted.set_value();
        });
        counted.get_future().wait();
      } else if (verb == QLatin1String("burst") && words.size() == 2) {
        const int count = words[1].toInt();
        penQueue.post([&logger, &burstNumbered, count] {
          const int first = burstNumbered + 1;
          burstNumbered += count;  // only the pen thread touches it
          for (int n = first; n <= burstNumbered; ++n) {
            logger.countColor((n >> 16) & 0xFF, (n >> 8) & 0xFF, n & 0xFF);
            QThread::usleep(200);
          }
          tw::logLine(std::string_view("BURST DONE"));
        });
      } else if (verb == QLatin1String("screen") && words.size() == 4) {
        logger.bPickScreenColor = true;
        logger.countColor(words[1].toInt(), words[2].toInt(), words[3].toInt());
      } else if (verb == QLatin1String("push") && words.size() == 2) {
        const bool ps = words[1] == QLatin1String("PS");
        commander.tempApplicationRecord()->update(
            [ps](tw::ApplicationRecord::Fields& f) { ps ? ++f.PS : ++f.AI; });
      } else if (verb == QLatin1String("quit")) {
        delegate.terminate();
      } else if (verb == QLatin1String("state")) {
        tw::logLine(stateLine(logger, commander));
      } else {
        tw::logLine(QStringLiteral("DRIVER unknown command ") + words.join(u' '));
      }
    }
  });

  tw::logLine(std::string_view("READY"));
  const int code = app.exec();
  penThread.quit();
  penThread.wait();
  penEnded.get_future().wait();
  return code;
}
