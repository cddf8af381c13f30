# Tintwell bridge: lets the Tintwell desktop application set and read Krita's
# foreground colour through a local socket that only this user can open.
#
# One request per line, one answer line each. The grammar is fixed and nothing
# received is ever evaluated:
#   ping          -> pong
#   version       -> tintwell-krita N
#   set #rrggbb   -> ok (applied to the active view), or queued (no view yet:
#                    applied when one opens)
#   get           -> #rrggbb (the active view's foreground), or none
#   anything else -> error unknown request
# A line longer than MAX_LINE bytes is answered "error line too long" and the
# connection is closed.

import os
import re
import sys

from krita import Extension, Krita, ManagedColor
from PyQt5.QtCore import QStandardPaths, QTimer
from PyQt5.QtGui import QColor
from PyQt5.QtNetwork import QLocalServer, QLocalSocket

# Tintwell reads this line from the file it ships and from the installed copy
# to know whether the installed plug-in is its own: keep it "NAME = integer".
PLUGIN_VERSION = 1

SOCKET_NAME = "tintwell-krita.socket"
MAX_LINE = 64
SET_REQUEST = re.compile(rb"set #([0-9A-Fa-f]{6})")
# How often a queued colour looks for a view (milliseconds).
QUEUE_POLL_MS = 200


def log(text):
    print("Tintwell bridge: " + text, file=sys.stderr, flush=True)


def socket_path():
    # The same folder Tintwell computes: XDG_RUNTIME_DIR, else Qt's fallback.
    folder = os.environ.get("XDG_RUNTIME_DIR") or QStandardPaths.writableLocation(
        QStandardPaths.RuntimeLocation)
    return os.path.join(folder, SOCKET_NAME)


def active_view():
    """The view the user works in, or None when no document is open."""
    app = Krita.instance()
    # Without a window manager (or with Krita in the background) there may be
    # no active window while a window with a view exists: look at them all.
    windows = [app.activeWindow()] + list(app.windows())
    for window in windows:
        if window is None:
            continue
        view = window.activeView()
        if view is not None and view.document() is not None:
            return view
    return None


class Connection:
    """One client: its bytes up to the next newline, and its answers."""

    def __init__(self, bridge, socket):
        self.bridge = bridge
        self.socket = socket
        self.pending = b""
        self.closing = False
        socket.readyRead.connect(self.read)
        socket.disconnected.connect(self.gone)

    def read(self):
        try:
            if self.closing:
                self.socket.readAll()
                return
            self.pending += bytes(self.socket.readAll())
            while not self.closing:
                end = self.pending.find(b"\n")
                line = self.pending if end < 0 else self.pending[:end]
                if line.endswith(b"\r"):
                    line = line[:-1]
                if len(line) > MAX_LINE:
                    self.reject()
                    return
                if end < 0:
                    return
                self.pending = self.pending[end + 1:]
                self.socket.write(self.bridge.safe_answer(line) + b"\n")
        except Exception as error:  # never let a client's bytes reach Krita as an exception
            log("dropping a connection: %r" % (error,))
            self.socket.abort()

    def reject(self):
        self.closing = True
        self.pending = b""
        self.socket.write(b"error line too long\n")
        # Sends what is written, then closes.
        self.socket.disconnectFromServer()

    def gone(self):
        self.bridge.forget(self)
        self.socket.deleteLater()


class TintwellBridge(Extension):

    def __init__(self, parent):
        super().__init__(parent)
        self.server = None
        self.connections = set()
        self.queued = None
        # A colour that arrived before any document was open waits here. It is
        # applied by a short poll that runs only while a colour waits, rather
        # than from the notifier's viewCreated or a window's activeViewChanged:
        # the poll needs no assumption about the order in which Krita creates a
        # view, makes it active and gives it a canvas, nor about windows made
        # later, and it covers every way a view appears (new image, opened file,
        # a second krita handing over) alike. Idle, it costs nothing.
        self.queue_timer = QTimer(self)
        self.queue_timer.setInterval(QUEUE_POLL_MS)
        self.queue_timer.timeout.connect(self.apply_queued)

    def setup(self):
        try:
            self.listen()
        except Exception as error:
            log("not listening: %r" % (error,))

    def createActions(self, window):
        pass

    def listen(self):
        path = socket_path()
        # A live socket belongs to another running Krita: leave it alone. A file
        # that refuses connections is left by a Krita that was killed.
        probe = QLocalSocket()
        probe.connectToServer(path)
        if probe.waitForConnected(200):
            probe.abort()
            log("another Krita already answers on " + path)
            return
        QLocalServer.removeServer(path)
        server = QLocalServer(self)
        server.setSocketOptions(QLocalServer.UserAccessOption)
        server.newConnection.connect(self.accept)
        if not server.listen(path):
            log("cannot listen on %s: %s" % (path, server.errorString()))
            return
        self.server = server
        notifier = Krita.instance().notifier()
        notifier.setActive(True)
        notifier.applicationClosing.connect(self.stop_listening)

    def stop_listening(self):
        if self.server is not None:
            # Removes the socket file, so Tintwell sees at once that Krita is gone.
            self.server.close()
            self.server = None

    def accept(self):
        try:
            while self.server is not None and self.server.hasPendingConnections():
                self.connections.add(Connection(self, self.server.nextPendingConnection()))
        except Exception as error:
            log("cannot accept: %r" % (error,))

    def forget(self, connection):
        self.connections.discard(connection)

    def safe_answer(self, line):
        try:
            return self.answer(line)
        except Exception as error:  # a Krita call that failed costs one answer
            log("cannot answer %r: %r" % (line, error))
            return b"error internal"

    def answer(self, line):
        if line == b"ping":
            return b"pong"
        if line == b"version":
            return b"tintwell-krita %d" % PLUGIN_VERSION
        if line == b"get":
            return self.current()
        match = SET_REQUEST.fullmatch(line)
        if match:
            return self.set_colour("#" + match.group(1).decode("ascii").lower())
        return b"error unknown request"

    def set_colour(self, name):
        view = active_view()
        if view is None:
            self.queued = name
            self.queue_timer.start()
            return b"queued"
        # A newer colour replaces one still waiting.
        self.queued = None
        self.queue_timer.stop()
        self.apply(view, name)
        return b"ok"

    def apply(self, view, name):
        view.setForeGroundColor(ManagedColor.fromQColor(QColor(name), view.canvas()))

    def apply_queued(self):
        try:
            view = active_view()
            if view is None or self.queued is None:
                return
            name = self.queued
            self.queued = None
            self.queue_timer.stop()
            self.apply(view, name)
        except Exception as error:
            log("cannot apply the waiting colour: %r" % (error,))

    def current(self):
        view = active_view()
        if view is None:
            return b"none"
        colour = view.foregroundColor().colorForCanvas(view.canvas())
        return colour.name().encode("ascii")


Krita.instance().addExtension(TintwellBridge(Krita.instance()))
