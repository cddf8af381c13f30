// Time marks for bench/startup_phases.sh, built twice from this file:
//
// - with -DSTARTUP_MARKS_LAUNCHER, a launcher: writes "mark exec MS" to
//   standard error and executes its arguments, with LD_PRELOAD set to
//   $STARTUP_MARKS_LIBRARY;
// - as a shared library for LD_PRELOAD: writes "mark loaded MS" from its
//   constructor (every library of the program is mapped and relocated by then,
//   and the program's own code is about to run) and "mark map MS" at the first
//   xcb_map_window, the request that shows a window (Qt's xcb back end makes
//   it in QWidget::show(); the request leaves at the next flush, normally the
//   same pass of the event loop).
//
// MS is CLOCK_MONOTONIC in milliseconds. The marks need no change to the
// program measured, so the floors and tintwell are timed alike.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

static double now_ms(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec * 1e3 + (double)t.tv_nsec / 1e6;
}

#ifdef STARTUP_MARKS_LAUNCHER

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s PROGRAM [ARGUMENT...]\n", argv[0]);
    return 2;
  }
  // The library goes in here, not in the launcher's own environment, so that
  // its marks are the program's alone.
  const char* marks = getenv("STARTUP_MARKS_LIBRARY");
  if (marks) setenv("LD_PRELOAD", marks, 1);
  dprintf(2, "mark exec %.3f\n", now_ms());
  execvp(argv[1], argv + 1);
  perror(argv[1]);
  return 127;
}

#else

__attribute__((constructor)) static void mark_loaded(void) {
  dprintf(2, "mark loaded %.3f\n", now_ms());
}

// libxcb's xcb_void_cookie_t, by value.
typedef struct {
  unsigned int sequence;
} void_cookie;

void_cookie xcb_map_window(void* connection, uint32_t window) {
  static void_cookie (*real)(void*, uint32_t);
  static int marked;
  if (!marked) {
    marked = 1;
    dprintf(2, "mark map %.3f\n", now_ms());
  }
  if (!real) real = (void_cookie(*)(void*, uint32_t))dlsym(RTLD_NEXT, "xcb_map_window");
  return real(connection, window);
}

#endif
