#!/usr/bin/python3
"""A fake desktop portal with the Screenshot.PickColor call, for tests.

Usage: fake_portal.py R,G,B CODE[,CODE...] [VERSION]
Each PickColor answers, 50 ms later, with the next response code of the list
(the last one repeats): 0 with {"color": (R, G, B)}, anything else with no
results. The Screenshot interface's "version" property reads VERSION (2, the
first with PickColor, unless given); with VERSION "hang" that read is never
answered, as by a portal whose backend hangs. Prints "ready" once the name is
owned and "PickColor <token>" per call; ends when its standard input closes.

The real xdg-desktop-portal needs a desktop session and a backend, which a
test cannot have; this stands in for its D-Bus side only.
"""
import sys

import dbus
import dbus.service
import dbus.mainloop.glib
from gi.repository import GLib

BUS_NAME = "org.freedesktop.portal.Desktop"
PATH = "/org/freedesktop/portal/desktop"


class Request(dbus.service.Object):
    @dbus.service.signal("org.freedesktop.portal.Request", signature="ua{sv}")
    def Response(self, response, results):
        pass


class Portal(dbus.service.Object):
    def __init__(self, bus, color, codes, version):
        super().__init__(bus, PATH)
        self.bus = bus
        self.color = color
        self.codes = codes
        self.version = version
        self.calls = 0

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v",
                         async_callbacks=("reply", "error"))
    def Get(self, interface, name, reply, error):
        if self.version == "hang":
            print("Get %s" % name, flush=True)
            return
        try:
            reply(self.get(interface, name))
        except dbus.exceptions.DBusException as e:
            error(e)

    def get(self, interface, name):
        if interface == "org.freedesktop.portal.Screenshot" and name == "version":
            return dbus.UInt32(self.version)
        raise dbus.exceptions.DBusException(
            "no such property", name="org.freedesktop.DBus.Error.InvalidArgs")

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        if interface == "org.freedesktop.portal.Screenshot":
            return {"version": dbus.UInt32(0 if self.version == "hang" else self.version)}
        return {}

    @dbus.service.method("org.freedesktop.portal.Screenshot", in_signature="sa{sv}",
                         out_signature="o", sender_keyword="sender")
    def PickColor(self, parent_window, options, sender=None):
        token = str(options.get("handle_token", "t%d" % self.calls))
        code = self.codes[min(self.calls, len(self.codes) - 1)]
        self.calls += 1
        print("PickColor %s" % token, flush=True)
        path = "%s/request/%s/%s" % (PATH, sender[1:].replace(".", "_"), token)
        request = Request(self.bus, path)
        results = {}
        if code == 0:
            results["color"] = dbus.Struct([dbus.Double(c) for c in self.color], signature="ddd")

        def answer():
            request.Response(dbus.UInt32(code), dbus.Dictionary(results, signature="sv"))
            request.remove_from_connection()
            return False

        GLib.timeout_add(50, answer)
        return dbus.ObjectPath(path)


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    color = [float(c) for c in sys.argv[1].split(",")]
    codes = [int(c) for c in sys.argv[2].split(",")]
    version = sys.argv[3] if len(sys.argv) > 3 else "2"
    version = version if version == "hang" else int(version)
    portal = Portal(bus, color, codes, version)
    name = dbus.service.BusName(BUS_NAME, bus)
    loop = GLib.MainLoop()
    # Standard input is a pipe from the test: when the test goes, even by a
    # crash, the pipe closes and so does the fake.
    GLib.io_add_watch(sys.stdin.fileno(), GLib.IO_HUP | GLib.IO_IN, lambda *_: loop.quit())
    print("ready", flush=True)
    loop.run()


if __name__ == "__main__":
    main()
