// Debian's Qt, QtDBus and libdbus are not built with ThreadSanitizer: their
// locking (futex-based mutexes, wake-up descriptors) is invisible to it, so the
// hand-over of posted events and D-Bus messages between QtDBus's connection
// thread and the main thread looks racy. Accesses made inside those libraries
// are left out; everything compiled here, inline Qt code included, is still
// checked. The tests start child processes after threads exist.
#if defined(__SANITIZE_THREAD__)
extern "C" const char* __tsan_default_options() {
  return "ignore_noninstrumented_modules=1:die_after_fork=0";
}
extern "C" const char* __tsan_default_suppressions() {
  return "race:libQt6Core.so\n"
         "race:libQt6DBus.so\n"
         "race:libdbus-1.so\n";
}
#endif
