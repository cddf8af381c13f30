// Sanitizer reports that come from the system's own (uninstrumented) libraries.
//
// Debian's Qt and GLib are not built with ThreadSanitizer: their mutexes
// (futex based), atomics and wake-up descriptors are invisible to it, so
// hand-overs inside Qt's own threads (the network access thread, posted
// events, the GLib event dispatcher) look like races. Reports whose stacks run
// through those libraries are suppressed; races in our code still show.
extern "C" const char* __tsan_default_suppressions() {
  return "race:libQt6Core.so\n"
         "race:libQt6Network.so\n"
         "race:libglib-2.0.so\n";
}

// When a process ends right after a post (the quit handshake does exactly
// that), Qt's network thread may not have torn down its TLS connection yet;
// what OpenSSL allocated for it is then still held at exit.
extern "C" const char* __lsan_default_suppressions() { return "leak:libcrypto.so\n"; }
