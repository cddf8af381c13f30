#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "common/Log.h"
#include "tests/support/QtWait.h"

namespace tw::testing {

LogCapture::LogCapture() {
  setLogSink([this](std::string_view line) {
    const QString text = QString::fromUtf8(line.data(), static_cast<qsizetype>(line.size()));
    std::lock_guard<std::mutex> lock(mutex_);
    lines_ << text;
  });
}

LogCapture::~LogCapture() {
  setLogSink(nullptr);
  if (::testing::Test::HasFailure()) {
    const QByteArray all = text().toUtf8();
    std::fprintf(stdout, "--- what the application logged ---\n%s", all.constData());
    std::fflush(stdout);
  }
}

QStringList LogCapture::lines() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

QString LogCapture::text() const {
  QString all;
  for (const QString& line : lines()) all += line + QLatin1Char('\n');
  return all;
}

qsizetype LogCapture::count(const QString& line) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_.count(line);
}

bool LogCapture::inOrder(const QStringList& expected) const {
  const QStringList all = lines();
  qsizetype at = -1;
  for (const QString& line : expected) {
    at = all.indexOf(line, at + 1);
    if (at < 0) return false;
  }
  return true;
}

bool LogCapture::waitForLine(const QString& line, qsizetype times, int ms) const {
  return waitFor([&] { return count(line) >= times; }, ms);
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  lines_.clear();
}

}  // namespace tw::testing
