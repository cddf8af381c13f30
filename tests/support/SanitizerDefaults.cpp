// Sanitizer defaults for every test program and every helper process the tests
// start (tw_sanitizer_defaults in tests/CMakeLists.txt): the policy lives here
// only.
//
// Debian's Qt, GLib and libdbus are not built with ThreadSanitizer, so their
// own locking (futex-based mutexes, wake-up descriptors) is invisible to it.
// Our data crosses threads through primitives it sees (std::mutex,
// std::atomic, pen::Mailbox), never inside Qt's queued calls. Neither
// ignore_noninstrumented_modules nor `race:<library>` is used: both also hide
// races in our own code whenever Qt runs it (on a QThread, from the event
// loop).
#if defined(__SANITIZE_THREAD__)
#include <errno.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

// The tests start child processes (QProcess forks and executes at once) after
// threads exist.
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }

namespace {

// Qt 6.4 starts a QProcess with clone(CLONE_VM | CLONE_VFORK) once the kernel
// has pidfds: until it executes, the child runs in our memory, and the
// ThreadSanitizer interceptors it goes through on the way (the execve never
// returns) leave the starting thread's sanitizer state as if it were inside
// an ignored library: from then on its unlocks no longer publish what it
// wrote, and correct hand-overs are reported as races. Newer Qt versions use
// plain fork() in sanitizer builds. Here Qt is told that pidfds are missing
// (its probe is a waitid(P_PIDFD) on a closed descriptor), so it falls back
// to fork(), which ThreadSanitizer follows. Children inherit the filter; no
// other code of ours or of the tools the tests start waits on a pidfd.
__attribute__((constructor)) void forkProcessesWithoutSharingMemory() {
  static sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_waitid, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, P_PIDFD, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  static sock_fprog program = {sizeof filter / sizeof filter[0], filter};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0)
    ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

}  // namespace

// called_from_lib: what those libraries copy, or read and write through system
// calls, themselves (wake-up descriptors, queued events, D-Bus messages) is
// handed between their threads with locking ThreadSanitizer cannot see. It
// leaves out only the intercepted calls those libraries make directly; all of
// our code, also when Qt runs it on its threads, and the pthread locking they
// use stay checked.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libQt6Core.so\n"
         "called_from_lib:libQt6DBus.so\n"
         "called_from_lib:libQt6Network.so\n"
         "called_from_lib:libQt6Gui.so\n"
         "called_from_lib:libglib-2.0.so\n"
         "called_from_lib:libdbus-1.so\n"
         "called_from_lib:libQt6XcbQpa.so\n"
         "called_from_lib:libxcb.so\n"
         // Qt's TLS plugin, which runs on Qt's network thread and on ours.
         "called_from_lib:libqopensslbackend.so\n"
         // OpenSSL counts references to its objects with atomics it was not
         // built to show, so the last owner's free, on whichever of Qt's
         // threads lets go last, looks unordered against the others' use.
         "called_from_lib:libcrypto.so\n"
         "called_from_lib:libssl.so\n"
         // Each function below frees or first uses memory that another thread
         // of its library allocated, under that library's own locking:
         // glibc's tzset guards its cached zone name with an internal lock.
         "race:tzset_internal\n"
         // OpenSSL's exit-time clean-up frees locks while Qt's network thread,
         // not stopped at exit, may still hold a reference.
         "race:CRYPTO_THREAD_lock_free\n"
         // Not a race: libX11 destroys the display lock it holds while closing
         // the display (its functions carry no symbols to name).
         "mutex:libX11.so\n"
         // Not a race: the D-Bus loopback of the fuzz corpus replay and its
         // tests calls libdbus itself, whose locking ends in tail calls to
         // pthread, so a lock taken inside libdbus (left out above) shows its
         // unlock as ours.
         "mutex:DBusLoopback\n";
}
#endif

#if defined(__SANITIZE_ADDRESS__)
// When a process ends right after a post (the quit handshake does exactly
// that), Qt's network thread may not have torn down its TLS connection yet;
// what OpenSSL allocated for it is then still held at exit.
// Test programs that lay out text keep one application object for the whole
// process; fontconfig's configuration, which Qt's font database loads once and
// never releases, is still allocated when they end.
// Qt's StatusNotifierItem tray (QSystemTrayIcon on a bus with a watcher)
// registers its item and menu through QtDBus, which keeps a small object of
// its own (136 bytes, allocated inside libQt6DBus) after the icon is deleted.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libcrypto.so\n"
         "leak:libfontconfig.so\n"
         "leak:libQt6DBus.so\n";
}
#endif
