#pragma once

#include <QString>

namespace tw::testing {

// Reads the sender's lines, in order, and counts the colour sends that started
// while an earlier post was still out. The sender does not wait for one send
// to end before the next: a tick that comes while the last colour post's
// answer is still unhandled (as on a stalled main thread) sends the same
// record again, and both posts may be accepted.
//
// A post starts with an "API 開始" line and ends with one of three lines
// (success, a status other than 2xx, a transport error), only the first of
// which names its kind; so any post still out when a colour send starts
// counts as an overlap.
class PostOverlap {
 public:
  void read(const QString& line) {
    if (line == QStringLiteral(" API 開始 || Api Type : colorType")) {
      if (postsOut_ > 0) ++overlappingSends_;
      ++postsOut_;
    } else if (line == QStringLiteral(" API 開始 || Api Type : appType")) {
      ++postsOut_;
    } else if (line.startsWith(QStringLiteral(" API 完成 || Api Type : ")) ||
               line.startsWith(QLatin1String("statusCode should be 2xx, but is ")) ||
               line.startsWith(QLatin1String("error "))) {
      --postsOut_;
    }
  }
  int overlappingSends() const { return overlappingSends_; }

 private:
  int postsOut_ = 0;
  int overlappingSends_ = 0;
};

}  // namespace tw::testing
