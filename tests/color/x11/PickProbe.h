#pragma once
// The screen-picking probe (screen_pick_probe.cpp) run under a test's Xvfb,
// its output lines collected as they come.
#include <QColor>
#include <QDeadlineTimer>
#include <QProcess>
#include <QRect>
#include <QRegularExpression>
#include <QStringList>
#include <ostream>

#include "tests/support/XvfbServer.h"

// Readable failure messages.
inline void PrintTo(const QString& text, std::ostream* os) {
  *os << '"' << text.toStdString() << '"';
}

namespace tw::testing {

class Probe {
 public:
  Probe(const XvfbServer& server, const QStringList& args, bool scale2 = false)
      : Probe(server, args, scale2 ? QStringLiteral("2") : QString()) {}
  // With QT_SCALE_FACTOR set to `scale` when it is not empty.
  Probe(const XvfbServer& server, const QStringList& args, const QString& scale) {
    QProcessEnvironment env = server.environment();
    if (!scale.isEmpty()) env.insert(QStringLiteral("QT_SCALE_FACTOR"), scale);
    process_.setProcessEnvironment(env);
    process_.setProcessChannelMode(QProcess::SeparateChannels);
    process_.start(QStringLiteral(PROBE_PATH), args);
    process_.waitForStarted();
  }
  ~Probe() {
    process_.write("quit\n");
    if (!process_.waitForFinished(5000)) process_.kill();
    process_.waitForFinished(5000);
  }

  // Waits until a line starting with `prefix` arrives after the lines seen so
  // far; true when it did.
  bool waitFor(const QString& prefix, int ms = 15000) {
    QDeadlineTimer deadline(ms);
    while (true) {
      for (; next_ < lines_.size(); ++next_)
        if (lines_[next_].startsWith(prefix)) {
          ++next_;
          return true;
        }
      if (deadline.hasExpired() || process_.state() != QProcess::Running) return false;
      process_.waitForReadyRead(static_cast<int>(qMax<qint64>(1, deadline.remainingTime())));
      buffer_ += process_.readAllStandardOutput();
      qsizetype end;
      while ((end = buffer_.indexOf('\n')) >= 0) {
        lines_.push_back(QString::fromUtf8(buffer_.left(end)));
        buffer_.remove(0, end + 1);
      }
    }
  }
  void send(const QByteArray& command) {
    process_.write(command + '\n');
    process_.waitForBytesWritten(2000);
  }
  int count(const QString& prefix) const {
    int n = 0;
    for (const QString& line : lines_) n += line.startsWith(prefix);
    return n;
  }
  QStringList matching(const QString& prefix) const {
    QStringList found;
    for (const QString& line : lines_)
      if (line.startsWith(prefix)) found << line;
    return found;
  }
  QString all() const { return lines_.join(QLatin1Char('\n')); }

 private:
  QProcess process_;
  QByteArray buffer_;
  QStringList lines_;
  qsizetype next_ = 0;
};

// The probe's line for a screen pick of colour `c`.
inline QString newColorLine(QRgb c) {
  return QStringLiteral("NEW_COLOR %1 %2 %3 %4 NewScreenColor")
      .arg(qRed(c))
      .arg(qGreen(c))
      .arg(qBlue(c))
      .arg(QStringLiteral("%1%2%3")
               .arg(qRed(c), 2, 16, QLatin1Char('0'))
               .arg(qGreen(c), 2, 16, QLatin1Char('0'))
               .arg(qBlue(c), 2, 16, QLatin1Char('0'))
               .toUpper());
}

// The window `id` as the X server has it (xwininfo), in root pixels; empty
// when it is not viewable.
inline QRect viewableWindow(const XvfbServer& server, const QString& id) {
  const QString info =
      QString::fromLocal8Bit(server.run(QStringLiteral("xwininfo"), {QStringLiteral("-id"), id}));
  if (!info.contains(QStringLiteral("IsViewable"))) return {};
  const auto number = [&](const char* label) {
    return QRegularExpression(QStringLiteral("%1:\\s+(-?\\d+)").arg(QLatin1String(label)))
        .match(info)
        .captured(1)
        .toInt();
  };
  return QRect(number("Absolute upper-left X"), number("Absolute upper-left Y"), number("Width"),
               number("Height"));
}

}  // namespace tw::testing
