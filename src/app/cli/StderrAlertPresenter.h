#pragma once

#include <QString>
#include <cstdio>

#include "bridge/AlertPresenter.h"

namespace tw {

// Without a window the restart notice goes to standard error, where the user
// running the command sees it; it does not wait for an answer.
class StderrAlertPresenter : public AlertPresenter {
 public:
  void showInformation(const QString& message, const QString& informative) override {
    const QByteArray line = (message + QStringLiteral(": ") + informative + '\n').toUtf8();
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
  }
};

}  // namespace tw
