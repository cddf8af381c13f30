#pragma once

#include <QByteArray>
#include <QString>

namespace tw {

// Runs `command` as `/bin/bash -c command` and returns everything the shell and
// its children wrote to standard output, read until the last writer closed the
// pipe. Standard error and standard input are inherited; the exit status is not
// looked at (the child is reaped). A shell that cannot be started gives no
// output. Safe to call from several threads at once: the pipe is never
// inherited by a concurrent call's child.
QByteArray runBashCommand(const QString& command);

}  // namespace tw
