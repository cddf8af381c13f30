#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <QByteArray>
#include <cstdio>
#include <cstdlib>

namespace tw::testing {

// An anonymous in-memory file holding `content`, positioned at its start.
inline int memoryFile(const QByteArray& content) {
  const int fd = memfd_create("tintwell-fuzz", 0);
  if (fd < 0) std::abort();
  for (qsizetype done = 0; done < content.size();) {
    const ssize_t n = ::write(fd, content.constData() + done, content.size() - done);
    if (n <= 0) std::abort();
    done += n;
  }
  if (::lseek(fd, 0, SEEK_SET) != 0) std::abort();
  return fd;
}

inline QByteArray readWhole(int fd) {
  QByteArray out;
  if (::lseek(fd, 0, SEEK_SET) != 0) std::abort();
  char buffer[4096];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0) std::abort();
    if (n == 0) break;
    out.append(buffer, n);
  }
  return out;
}

// While it lives, file descriptor `target` (0 or 1) is `replacement`; the C
// streams on it are flushed and reset on both changes. Standard error is never
// replaced: a crash report must reach the fuzzer.
class Redirect {
 public:
  Redirect(int target, int replacement) : target_(target) {
    settle();
    saved_ = ::dup(target);
    if (saved_ < 0 || ::dup2(replacement, target) < 0) std::abort();
    settle();
  }
  ~Redirect() {
    settle();
    ::dup2(saved_, target_);
    ::close(saved_);
    settle();
  }
  Redirect(const Redirect&) = delete;
  Redirect& operator=(const Redirect&) = delete;

 private:
  void settle() {
    if (target_ == STDOUT_FILENO) std::fflush(stdout);
    if (target_ == STDIN_FILENO) {
      // Drops what stdio had buffered from the previous file, and its end flag.
      std::clearerr(stdin);
      std::fseek(stdin, 0, SEEK_SET);
      std::clearerr(stdin);
    }
  }
  int target_;
  int saved_ = -1;
};

}  // namespace tw::testing
