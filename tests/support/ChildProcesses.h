#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QString>

namespace tw::testing {

// The live child processes of `pid` whose name (/proc/PID/comm, at most 15
// bytes) is `name`, whichever of its threads started them.
inline QList<qint64> childProcesses(qint64 pid, const QByteArray& name) {
  QList<qint64> found;
  const QString tasks = QStringLiteral("/proc/%1/task").arg(pid);
  for (const QString& task : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
    QFile children(tasks + u'/' + task + QStringLiteral("/children"));
    if (!children.open(QIODevice::ReadOnly)) continue;
    for (const QByteArray& id : children.readAll().simplified().split(' ')) {
      if (id.isEmpty()) continue;
      QFile comm(QStringLiteral("/proc/%1/comm").arg(QString::fromLatin1(id)));
      if (comm.open(QIODevice::ReadOnly) && comm.readAll().trimmed() == name.left(15))
        found << id.toLongLong();
    }
  }
  return found;
}

}  // namespace tw::testing
