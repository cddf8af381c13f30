// Latency of the pen link from the fake BlueZ's emission of a colour packet to
// its "Notification_New_Color" post: a private bus, the fake BlueZ sending
// packets at 1 kHz for 10 s, and the real link (BlueZ backend) connected by the
// scan. Each packet carries its sequence number (bytes 4-7) and the emission
// time on CLOCK_MONOTONIC (bytes 8-15), which the decoder ignores; the observer
// reads them from the characteristic's stored value at the post.
//
//   pen_latency [--count N] [--interval-us U]      (default 10000 at 1000 us)
// Prints the counts and p50/p99/max; exits 1 unless every packet was posted
// exactly once and in order.
#include <fcntl.h>
#include <unistd.h>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <vector>

#include "color/ColorStruct.h"
#include "events/NotificationCenter.h"
#include "events/Notifications.h"
#include "pen/BluetoothUuid.h"
#include "pen/CoreQuilla.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"

namespace {

quint64 monotonicNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return quint64(ts.tv_sec) * 1000000000ull + quint64(ts.tv_nsec);
}

template <typename T>
T readLittleEndian(const QByteArray& bytes, int offset) {
  T value = 0;
  for (int i = 0; i < int(sizeof(T)); ++i) value |= T(quint8(bytes.at(offset + i))) << (8 * i);
  return value;
}

bool waitFor(const std::function<bool()>& done, int ms) {
  QDeadlineTimer deadline(ms);
  while (!done()) {
    if (deadline.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    QThread::msleep(1);
  }
  return true;
}

struct Sample {
  quint32 sequence;
  quint64 latencyNs;
  bool colourMatches;
};

}  // namespace

int main(int argc, char** argv) {
  quint32 count = 10000;
  quint32 intervalUs = 1000;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (qstrcmp(argv[i], "--count") == 0) count = QByteArray(argv[i + 1]).toUInt();
    if (qstrcmp(argv[i], "--interval-us") == 0) intervalUs = QByteArray(argv[i + 1]).toUInt();
  }

  // A private bus and the fake BlueZ with one advertising pen.
  QTemporaryDir dir;
  tw::testing::PrivateBus bus;
  bus.exportAddress();
  qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
  qputenv("XDG_CONFIG_HOME", dir.filePath(QStringLiteral("config")).toUtf8());
  qputenv("TINTWELL_TIME_SCALE", "0.02");

  QCoreApplication app(argc, argv);
  QProcess fake;
  fake.setProcessChannelMode(QProcess::ForwardedErrorChannel);
  tw::testing::endWithParent(fake);
  fake.start(QStringLiteral(FAKE_BLUEZ_BIN),
             {QStringLiteral("--pen"), QStringLiteral("QUILLA-Pen 02"),
              QStringLiteral("--interval-ms"), QStringLiteral("0")});
  fake.waitForReadyRead(10000);
  if (fake.readLine().trimmed() != "ready") {
    std::fprintf(stderr, "pen_latency: the fake BlueZ did not start\n");
    return 2;
  }
  QDBusConnection control = QDBusConnection::connectToBus(bus.address(), "control");
  const auto controlCall = [&](const QString& method, const QVariantList& args = {}) {
    QDBusMessage m = QDBusMessage::createMethodCall(
        QStringLiteral("org.tintwell.FakeBluez"), QStringLiteral("/org/tintwell/FakeBluez"),
        QStringLiteral("org.tintwell.FakeBluez1"), method);
    m.setArguments(args);
    return control.call(m, QDBus::Block, 10000);
  };

  // The link's log lines (two per packet) still get written, to /dev/null.
  std::fflush(stdout);
  const int savedStdout = dup(STDOUT_FILENO);
  const int devNull = ::open("/dev/null", O_WRONLY);
  dup2(devNull, STDOUT_FILENO);

  tw::pen::CoreQuilla quilla;
  std::mutex mutex;
  std::vector<Sample> samples;
  samples.reserve(count);
  tw::pen::CharacteristicPtr colourCharacteristic;  // found once, on the link thread
  tw::NotificationCenter::defaultCenter().addObserver(
      tw::notification::newColor(), [&](const tw::Notification& n) {
        const quint64 now = monotonicNs();
        if (!colourCharacteristic) {
          const auto peripheral = quilla.currentPeripheralQuilla();
          for (const auto& s : peripheral->services().value_or(QList<tw::pen::ServicePtr>{}))
            for (const auto& c : s->characteristics().value_or(QList<tw::pen::CharacteristicPtr>{}))
              if (c->uuid() == tw::pen::penColorCharUUID()) colourCharacteristic = c;
        }
        const QByteArray packet = colourCharacteristic->value().value_or(QByteArray());
        if (packet.size() < 16) return;
        const auto sequence = readLittleEndian<quint32>(packet, 4);
        const auto sent = readLittleEndian<quint64>(packet, 8);
        const auto* color = std::any_cast<tw::ColorStruct>(&n.object);
        const bool matches = color != nullptr && color->iR == ((sequence * 7) & 0xFF) &&
                             color->iG == ((sequence * 13) & 0xFF) &&
                             color->iB == ((sequence * 29) & 0xFF);
        std::lock_guard lock(mutex);
        samples.push_back({sequence, now - sent, matches});
      });
  quilla.setupCentralManager();
  const bool notifying = waitFor(
      [&] {
        return controlCall(QStringLiteral("Calls"))
            .arguments()
            .value(0)
            .toStringList()
            .contains(QStringLiteral("StartNotify AA:BB:CC:DD:EE:02 1F16"));
      },
      20000);
  if (!notifying) {
    dup2(savedStdout, STDOUT_FILENO);
    std::fprintf(stderr, "pen_latency: the link did not switch notifications on\n");
    return 2;
  }

  controlCall(QStringLiteral("SendBurst"),
              {QStringLiteral("AA:BB:CC:DD:EE:02"), count, intervalUs});
  const auto received = [&] {
    std::lock_guard lock(mutex);
    return samples.size();
  };
  waitFor([&] { return received() >= count; }, int(quint64(count) * intervalUs / 1000) + 20000);
  waitFor([] { return false; }, 200);  // anything extra would show up now
  // Results go to the real standard output; the link keeps writing to /dev/null.
  FILE* results = fdopen(savedStdout, "w");

  std::vector<Sample> got;
  {
    std::lock_guard lock(mutex);
    got = samples;
  }
  bool inOrder = got.size() == count;
  bool coloursMatch = true;
  for (size_t i = 0; i < got.size(); ++i) {
    inOrder = inOrder && got[i].sequence == i;
    coloursMatch = coloursMatch && got[i].colourMatches;
  }
  std::vector<quint64> latencies;
  for (const auto& s : got) latencies.push_back(s.latencyNs);
  std::sort(latencies.begin(), latencies.end());
  const auto percentile = [&](double p) {
    if (latencies.empty()) return 0.0;
    const size_t i = std::min(latencies.size() - 1, size_t(p * double(latencies.size() - 1) + 0.5));
    return double(latencies[i]) / 1e6;
  };
  std::fprintf(
      results,
      "packets sent %u at %u us, posted %zu, exactly once in order: %s, colours match: %s\n", count,
      intervalUs, got.size(), inOrder ? "yes" : "no", coloursMatch ? "yes" : "no");
  std::fprintf(results, "emission to post: p50 %.3f ms  p99 %.3f ms  max %.3f ms\n",
               percentile(0.50), percentile(0.99),
               latencies.empty() ? 0.0 : double(latencies.back()) / 1e6);
  std::fflush(results);

  controlCall(QStringLiteral("Quit"));
  fake.waitForFinished(3000);
  return inOrder && coloursMatch ? 0 : 1;
}
