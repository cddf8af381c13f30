#include "bridge/ShellRunner.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace tw {

QByteArray runBashCommand(const QString& command) {
  int fds[2];
  // Close-on-exec, so a child started by another thread at the same moment does
  // not hold our pipe open and keep our read waiting for its end.
  if (pipe2(fds, O_CLOEXEC) != 0) return {};

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  // dup2 clears close-on-exec on the copy, so only standard output stays open.
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);

  const QByteArray commandBytes = command.toUtf8();
  char bash[] = "/bin/bash";
  char dashC[] = "-c";
  char* argv[] = {bash, dashC, const_cast<char*>(commandBytes.constData()), nullptr};
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, bash, &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);

  QByteArray output;
  if (spawned == 0) {
    char buffer[4096];
    for (;;) {
      const ssize_t n = read(fds[0], buffer, sizeof buffer);
      if (n > 0) {
        output.append(buffer, n);
      } else if (n < 0 && errno == EINTR) {
        continue;
      } else {
        break;
      }
    }
  }
  close(fds[0]);
  if (spawned == 0) {
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  return output;
}

}  // namespace tw
