#include "tests/support/DesignAppSession.h"

#include "tests/support/XwdImage.h"

#include <sys/stat.h>
#include <unistd.h>
#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>
#include <QThread>
#include <QVariantMap>
#include <atomic>
#include <csignal>

namespace tw::testing {

namespace {
std::atomic<int> connectionCount{0};
}

bool hasProgram(const QString& program) {
  return !QStandardPaths::findExecutable(program).isEmpty();
}

DesignAppSession::DesignAppSession(const QString& display)
    : display_(display),
      connectionName_(QStringLiteral("design-app-%1").arg(connectionCount.fetch_add(1))) {
  if (!home_.isValid()) return;
  for (const QString& sub :
       {QStringLiteral("/run"), QStringLiteral("/.config"), QStringLiteral("/.local/share"),
        QStringLiteral("/.cache"), QStringLiteral("/tmp")}) {
    QDir().mkpath(home_.path() + sub);
  }
  ::chmod(QFile::encodeName(runtimeDir()).constData(), 0700);
}

DesignAppSession::~DesignAppSession() {
  killAll();
  QDBusConnection::disconnectFromBus(connectionName_);
}

QProcessEnvironment DesignAppSession::environment() const {
  QProcessEnvironment env = bus_.environmentWithBus();
  env.insert(QStringLiteral("HOME"), home());
  env.insert(QStringLiteral("XDG_CONFIG_HOME"), configDir());
  env.insert(QStringLiteral("XDG_DATA_HOME"), dataDir());
  env.insert(QStringLiteral("XDG_CACHE_HOME"), home() + QStringLiteral("/.cache"));
  env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir());
  // Krita's single-instance socket and lock live in the temporary folder: a
  // shared one would hand this session's `krita --new-image` to any other
  // Krita of the same user on the machine, whatever its display.
  env.insert(QStringLiteral("TMPDIR"), home() + QStringLiteral("/tmp"));
  env.insert(QStringLiteral("DISPLAY"), display_);
  // No accessibility bus to look for, no desktop session to join, and the
  // applications' own platform plug-in rather than the test's offscreen one.
  env.insert(QStringLiteral("NO_AT_BRIDGE"), QStringLiteral("1"));
  env.remove(QStringLiteral("SESSION_MANAGER"));
  env.remove(QStringLiteral("WAYLAND_DISPLAY"));
  env.remove(QStringLiteral("XDG_SESSION_TYPE"));
  env.remove(QStringLiteral("QT_QPA_PLATFORM"));
  return env;
}

QDBusConnection DesignAppSession::bus() const {
  return QDBusConnection::connectToBus(bus_.address(), connectionName_);
}

void DesignAppSession::exportEnvironment() const {
  const QProcessEnvironment env = environment();
  for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME",
                           "XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS"}) {
    qputenv(name, env.value(QString::fromLatin1(name)).toLocal8Bit());
  }
}

bool DesignAppSession::start(const QString& program, const QStringList& arguments) {
  process_ = std::make_unique<QProcess>();
  process_->setProcessEnvironment(environment());
  process_->setWorkingDirectory(home());
  process_->setProcessChannelMode(QProcess::MergedChannels);
  process_->setChildProcessModifier([] { ::setsid(); });
  process_->start(program, arguments);
  return process_->waitForStarted(10000);
}

void DesignAppSession::killAll() {
  if (!process_) return;
  const qint64 leader = process_->processId();
  if (leader > 0) {
    ::kill(-static_cast<pid_t>(leader), SIGCONT);
    ::kill(-static_cast<pid_t>(leader), SIGKILL);
  }
  process_->waitForFinished(10000);
  output();
  process_.reset();
}

void DesignAppSession::freeze() {
  if (process_) ::kill(-static_cast<pid_t>(process_->processId()), SIGSTOP);
}

void DesignAppSession::thaw() {
  if (process_) ::kill(-static_cast<pid_t>(process_->processId()), SIGCONT);
}

QString DesignAppSession::output() {
  if (process_) output_ += process_->readAll();
  return QString::fromLocal8Bit(output_);
}

QByteArray DesignAppSession::runTool(const QString& program, const QStringList& arguments,
                                     int ms) const {
  QProcess tool;
  tool.setProcessEnvironment(environment());
  tool.start(program, arguments);
  if (!tool.waitForFinished(ms) || tool.exitStatus() != QProcess::NormalExit ||
      tool.exitCode() != 0) {
    tool.kill();
    tool.waitForFinished(1000);
    return {};
  }
  return tool.readAllStandardOutput();
}

QDBusMessage DesignAppSession::activateAction(const QString& service, const QString& path,
                                              const QString& name,
                                              const QVariantList& parameters) const {
  QDBusMessage call = QDBusMessage::createMethodCall(
      service, path, QStringLiteral("org.gtk.Actions"), QStringLiteral("Activate"));
  // Plain values: Qt wraps each in the variant the action takes.
  call << name << QVariant(parameters) << QVariant(QVariantMap());
  return bus().call(call, QDBus::Block, 10000);
}

qsizetype DesignAppSession::pixelsOnScreen(QRgb rgb, qsizetype atLeast,
                                           std::chrono::milliseconds limit) const {
  qsizetype count = -1;
  waitUntil(
      [&] {
        const auto image = imageFromXwd(
            runTool(QStringLiteral("xwd"), {QStringLiteral("-root"), QStringLiteral("-silent")}));
        count = image ? countPixels(*image, rgb) : -1;
        return count >= atLeast;
      },
      limit);
  return count;
}

bool DesignAppSession::waitUntil(const std::function<bool()>& ready,
                                 std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (ready()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    if (QCoreApplication::instance()) QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    QThread::msleep(200);
  }
}

}  // namespace tw::testing
