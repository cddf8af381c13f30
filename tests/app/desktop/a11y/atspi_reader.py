#!/usr/bin/env python3
"""A screen reader's view of one application, for the accessibility tests.

Reads the application named on the command line through AT-SPI (the
accessibility bus the session bus names) and answers on standard output, one
line each:

  ready                          the listener is registered (printed once)
  tree <JSON>                    after "tree" on standard input: every object
                                 under the application, depth first, as
                                 {role, name, description, text, focusable}
  event <JSON>                   each name or description change, as
                                 {type, role, name, description, data}: the
                                 object's name and description read when the
                                 event came, and the words the event carried
                                 (null when it carried none)
  missing                        after "tree" when the application is not there
"""
import json
import sys

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

APP_NAME = sys.argv[1]
EVENTS = ("object:property-change:accessible-name",
          "object:property-change:accessible-description")


def say(line):
    sys.stdout.write(line + "\n")
    sys.stdout.flush()


def find_application():
    desktop = Atspi.get_desktop(0)
    for i in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(i)
        if app is not None and app.get_name() == APP_NAME:
            return app
    return None


def text_of(node):
    if "Text" not in node.get_interfaces():
        return None
    return Atspi.Text.get_text(node, 0, Atspi.Text.get_character_count(node))


def walk(node, out, depth=0):
    if node is None or depth > 40:
        return
    states = node.get_state_set()
    out.append({
        "role": node.get_role_name(),
        "name": node.get_name(),
        "description": node.get_description(),
        "text": text_of(node),
        "focusable": states.contains(Atspi.StateType.FOCUSABLE),
        "showing": states.contains(Atspi.StateType.SHOWING),
    })
    for i in range(node.get_child_count()):
        walk(node.get_child_at_index(i), out, depth + 1)


def on_event(event):
    source = event.source
    data = event.any_data
    if hasattr(data, "get_value"):  # a GObject.Value
        data = data.get_value()
    # Qt 6.4 sends the object's path with a property change, not the new
    # words; read them back as a screen reader does, past the client's cache.
    if source is not None:
        source.clear_cache()
    say("event " + json.dumps({
        "type": event.type,
        "role": source.get_role_name() if source else None,
        "name": source.get_name() if source else None,
        "description": source.get_description() if source else None,
        "data": data if isinstance(data, str) else None,
    }))


def on_input(channel, condition):
    line = channel.readline()
    if not line:
        loop.quit()
        return False
    command = line.strip()
    if command == "tree":
        app = find_application()
        if app is None:
            say("missing")
        else:
            nodes = []
            walk(app, nodes)
            say("tree " + json.dumps(nodes))
    elif command == "quit":
        loop.quit()
        return False
    return True


loop = GLib.MainLoop()
listener = Atspi.EventListener.new(on_event)
for kind in EVENTS:
    listener.register(kind)
GLib.io_add_watch(GLib.IOChannel.unix_new(sys.stdin.fileno()), GLib.IO_IN | GLib.IO_HUP,
                  on_input)
say("ready")
loop.run()
