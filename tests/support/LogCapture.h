#pragma once

#include <QString>
#include <QStringList>
#include <mutex>

namespace tw::testing {

// What the application says (its diagnostic lines), kept while this lives
// instead of going to standard output. Lines from every thread are kept in the
// order they were logged. On a failed test they are printed at the end, so the
// failure shows what led to it.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  QStringList lines() const;
  // Every line, each ended by "\n": what standard output would have held.
  QString text() const;
  qsizetype count(const QString& line) const;
  bool contains(const QString& line) const { return count(line) > 0; }
  // Whether these lines came in this order (others may sit between them).
  bool inOrder(const QStringList& expected) const;
  // Runs the calling thread's events until `line` has been logged `times`
  // times in all, or `ms` pass.
  bool waitForLine(const QString& line, qsizetype times = 1, int ms = 5000) const;
  // Forgets the lines so far.
  void clear();

 private:
  mutable std::mutex mutex_;
  QStringList lines_;
};

}  // namespace tw::testing
