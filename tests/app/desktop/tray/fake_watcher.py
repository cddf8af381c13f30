#!/usr/bin/python3
"""A stand-in StatusNotifierWatcher (org.kde.StatusNotifierWatcher), for tests.

Usage: fake_watcher.py
Owns the watcher's name on the session bus (DBUS_SESSION_BUS_ADDRESS), says a
host is registered, and prints "ready" once the name is owned and
"Registered <service> <sender>" for each item that registers. Ends when its
standard input closes.

A desktop's tray (its StatusNotifierHost) needs a desktop session, which a
test cannot have; this stands in for its D-Bus side only.
"""
import sys

import dbus
import dbus.service
import dbus.mainloop.glib
from gi.repository import GLib

NAME = "org.kde.StatusNotifierWatcher"
PATH = "/StatusNotifierWatcher"

# Qt reads the host property through an introspected interface, so the
# properties must be in the introspection data.
INTROSPECTION = """<!DOCTYPE node PUBLIC "-//freedesktop//DTD D-BUS Object Introspection 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd">
<node>
 <interface name="org.kde.StatusNotifierWatcher">
  <method name="RegisterStatusNotifierItem"><arg name="service" type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg name="service" type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
  <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
  <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
  <signal name="StatusNotifierHostRegistered"/>
 </interface>
 <interface name="org.freedesktop.DBus.Properties">
  <method name="Get"><arg type="s" direction="in"/><arg type="s" direction="in"/>
   <arg type="v" direction="out"/></method>
  <method name="GetAll"><arg type="s" direction="in"/><arg type="a{sv}" direction="out"/></method>
 </interface>
 <interface name="org.freedesktop.DBus.Introspectable">
  <method name="Introspect"><arg type="s" direction="out"/></method>
 </interface>
</node>
"""


class Watcher(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, PATH)
        self.items = []

    def properties(self):
        return {
            "RegisteredStatusNotifierItems": dbus.Array(self.items, signature="s"),
            "IsStatusNotifierHostRegistered": dbus.Boolean(True),
            "ProtocolVersion": dbus.Int32(0),
        }

    @dbus.service.method(dbus.INTROSPECTABLE_IFACE, in_signature="", out_signature="s")
    def Introspect(self):
        return INTROSPECTION

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        props = self.properties()
        if interface == NAME and name in props:
            return props[name]
        raise dbus.exceptions.DBusException(
            "no such property", name="org.freedesktop.DBus.Error.InvalidArgs")

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return self.properties() if interface == NAME else {}

    @dbus.service.method(NAME, in_signature="s", out_signature="", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        # An item may give its bus name or only its path.
        item = service if not service.startswith("/") else sender + service
        self.items.append(item)
        print("Registered %s %s" % (service, sender), flush=True)
        self.StatusNotifierItemRegistered(item)

    @dbus.service.method(NAME, in_signature="s", out_signature="")
    def RegisterStatusNotifierHost(self, service):
        pass

    @dbus.service.signal(NAME, signature="s")
    def StatusNotifierItemRegistered(self, service):
        pass


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    watcher = Watcher(bus)
    name = dbus.service.BusName(NAME, bus)
    loop = GLib.MainLoop()
    GLib.io_add_watch(sys.stdin.fileno(), GLib.IO_HUP | GLib.IO_IN,
                      lambda *args: (loop.quit(), False)[1])
    print("ready", flush=True)
    loop.run()
    del name, watcher


if __name__ == "__main__":
    main()
