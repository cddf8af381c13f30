// The start-up comparison's stop watch: waits, without polling, for a
// top-level window whose WM_NAME matches an extended regular expression to be
// mapped on the display in $DISPLAY, and prints the wall-clock time of the
// MapNotify in microseconds since the epoch (the clock of bash's
// EPOCHREALTIME).
//
// Usage: map_waiter REGEX TIMEOUT_SECONDS
// Prints "ready" once it listens, so the program can be started after it;
// then the time and the window's id, or nothing and exit status 1 after the timeout.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <regex.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/select.h>
#include <sys/time.h>

static int ignore_errors(Display* display, XErrorEvent* error) {
  (void)display;
  (void)error;
  return 0;  // a window gone before its name was read
}

// WM_NAME's bytes whatever its type (Xlib's XFetchName reads only the STRING
// type; GTK sets UTF8_STRING or COMPOUND_TEXT).
static int name_matches(Display* display, Window window, const regex_t* pattern) {
  Atom type = None;
  int format = 0;
  unsigned long count = 0;
  unsigned long after = 0;
  unsigned char* bytes = NULL;
  if (XGetWindowProperty(display, window, XA_WM_NAME, 0, 1024, False, AnyPropertyType, &type,
                         &format, &count, &after, &bytes) != Success ||
      bytes == NULL)
    return 0;
  int matches = 0;
  if (format == 8) {
    char* name = malloc(count + 1);
    if (name != NULL) {
      for (unsigned long i = 0; i < count; ++i) name[i] = (char)bytes[i];
      name[count] = '\0';
      matches = regexec(pattern, name, 0, NULL, 0) == 0;
      free(name);
    }
  }
  XFree(bytes);
  return matches;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: map_waiter REGEX TIMEOUT_SECONDS\n");
    return 2;
  }
  regex_t pattern;
  if (regcomp(&pattern, argv[1], REG_EXTENDED | REG_NOSUB) != 0) {
    fprintf(stderr, "map_waiter: not a regular expression: %s\n", argv[1]);
    return 2;
  }
  const double timeout = atof(argv[2]);
  Display* display = XOpenDisplay(NULL);
  if (display == NULL) {
    fprintf(stderr, "map_waiter: cannot open the display\n");
    return 2;
  }
  XSetErrorHandler(ignore_errors);
  XSelectInput(display, DefaultRootWindow(display), SubstructureNotifyMask);
  XSync(display, False);
  printf("ready\n");
  fflush(stdout);

  struct timeval start;
  gettimeofday(&start, NULL);
  const int fd = ConnectionNumber(display);
  for (;;) {
    while (XPending(display)) {
      XEvent event;
      XNextEvent(display, &event);
      if (event.type != MapNotify) continue;
      struct timeval now;
      gettimeofday(&now, NULL);
      if (name_matches(display, event.xmap.window, &pattern)) {
        printf("%lld %lu\n", (long long)now.tv_sec * 1000000 + now.tv_usec,
               (unsigned long)event.xmap.window);
        fflush(stdout);
        XCloseDisplay(display);
        return 0;
      }
    }
    struct timeval now;
    gettimeofday(&now, NULL);
    const double waited = (double)(now.tv_sec - start.tv_sec) + (now.tv_usec - start.tv_usec) / 1e6;
    if (waited >= timeout) break;
    const double left = timeout - waited;
    struct timeval wait = {(time_t)left, (suseconds_t)((left - (time_t)left) * 1e6)};
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    select(fd + 1, &readable, NULL, NULL, &wait);
  }
  XCloseDisplay(display);
  return 1;
}
