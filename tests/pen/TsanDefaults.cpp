// Debian's Qt is not built with ThreadSanitizer: its own locking is invisible
// to it, so accesses made inside those libraries are left out. Everything
// compiled here, inline Qt code included, is still checked. The tests start
// child processes (QProcess forks, then executes at once) after threads exist.
#if defined(__SANITIZE_THREAD__)
extern "C" const char* __tsan_default_options() {
  return "ignore_noninstrumented_modules=1:die_after_fork=0";
}
#endif
