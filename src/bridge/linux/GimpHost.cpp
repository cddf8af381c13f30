#include "bridge/linux/GimpHost.h"

#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <thread>

#include "bridge/linux/HostBus.h"

namespace tw {

namespace {

const QString kService = QStringLiteral("org.gimp.GIMP.UI");
const QString kPath = QStringLiteral("/org/gimp/GIMP/UI");
const QString kInterface = QStringLiteral("org.gimp.GIMP.UI");

// A Scheme string literal of `text`.
QString schemeString(const QString& text) {
  QString quoted = text;
  quoted.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
  quoted.replace(QLatin1Char('"'), QStringLiteral("\\\""));
  return QLatin1Char('"') + quoted + QLatin1Char('"');
}

}  // namespace

GimpHost::GimpHost(QDBusConnection bus) : bus_(std::move(bus)) {}

GimpHost::~GimpHost() = default;

bool GimpHost::isHostProcess(const RunningApplication& application) const {
  static const QRegularExpression name(QStringLiteral("^gimp(-[0-9]+(\\.[0-9]+)*)?$"));
  return application.localizedName && name.match(*application.localizedName).hasMatch();
}

QString GimpHost::script(const std::optional<HostColor>& color, quint64 sequence,
                         const QString& answerPath) {
  QString program = QStringLiteral("(begin ");
  if (color) {
    program += QStringLiteral("(gimp-context-set-foreground '(%1 %2 %3)) ")
                   .arg(color->red)
                   .arg(color->green)
                   .arg(color->blue);
  }
  program += QStringLiteral(
                 "(let ((port (open-output-file %1))) "
                 "(write (list %2 (car (gimp-context-get-foreground))) port) "
                 "(close-output-port port)))")
                 .arg(schemeString(answerPath))
                 .arg(sequence);
  return program;
}

std::optional<HostColor> GimpHost::parseAnswer(const QByteArray& text, quint64 sequence) {
  static const QRegularExpression form(
      QStringLiteral("^\\(([0-9]+) \\(([0-9]+) ([0-9]+) ([0-9]+)\\)\\)\\s*$"));
  const QRegularExpressionMatch match = form.match(QString::fromLatin1(text));
  if (!match.hasMatch() || match.captured(1).toULongLong() != sequence) return std::nullopt;
  HostColor color{match.captured(2).toInt(), match.captured(3).toInt(), match.captured(4).toInt()};
  for (const int channel : {color.red, color.green, color.blue}) {
    if (channel > 255) return std::nullopt;
  }
  return color;
}

QString GimpHost::answerPath() {
  // Private, so no other user can read or plant an answer.
  if (!folder_) folder_ = privateFolder(QStringLiteral("tintwell-gimp"));
  if (!folder_->isValid()) return {};
  return folder_->filePath(QStringLiteral("answer"));
}

GimpHost::Answer GimpHost::run(const std::optional<HostColor>& color,
                               std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const QString path = answerPath();
  if (path.isEmpty()) {
    return {{PushStatus::Failed, QStringLiteral("no private folder for GIMP's answer")}, {}};
  }
  QFile::remove(path);
  const quint64 sequence = ++sequence_;
  QDBusMessage call =
      QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("BatchRun"));
  call << QStringLiteral("plug-in-script-fu-eval") << script(color, sequence, path);
  const QDBusMessage reply = callWithin(bus_, call, deadline);
  if (std::optional<PushOutcome> failure = callFailure(reply, timeout)) return {*failure, {}};
  if (reply.arguments().value(0).toBool() != true) {
    return {{PushStatus::Failed, QStringLiteral("GIMP did not run the script")}, {}};
  }
  // The bus answer comes before the script runs; the answer file is the proof.
  for (;;) {
    QFile file(path);
    if (file.open(QIODevice::ReadOnly)) {
      if (std::optional<HostColor> answer = parseAnswer(file.readAll(), sequence)) {
        if (color && !(*answer == *color)) {
          return {{PushStatus::Failed,
                   QStringLiteral("GIMP shows %1 instead of %2").arg(answer->hex(), color->hex())},
                  answer};
        }
        return {{PushStatus::Confirmed, {}}, answer};
      }
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      return {{PushStatus::Failed, noAnswerReason(timeout)}, {}};
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

PushOutcome GimpHost::push(const HostColor& color, std::chrono::milliseconds timeout) {
  return run(color, timeout).outcome;
}

std::optional<HostColor> GimpHost::readBack(std::chrono::milliseconds timeout) {
  return run(std::nullopt, timeout).color;
}

}  // namespace tw
