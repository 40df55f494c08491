"""Prints the bodies of the next <count> signals <member> on interface <name>.

Prints "ready" once the bus routes those signals here, then one line per
signal: its type string and its unpacked value."""
import sys

from gi.repository import Gio, GLib

name, member, count = sys.argv[1], sys.argv[2], int(sys.argv[3])
bus = Gio.bus_get_sync(Gio.BusType.SYSTEM, None)
loop = GLib.MainLoop()
received = []


def on_signal(connection, sender, path, interface, signal, body):
    print(body.get_type_string(), repr(body.unpack()), flush=True)
    received.append(body)
    if len(received) == count:
        loop.quit()


bus.signal_subscribe(None, name, member, None, None, Gio.DBusSignalFlags.NONE, on_signal)
# A round trip to the daemon: the match rule sent before it is in place after it.
bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
              None, None, Gio.DBusCallFlags.NONE, -1, None)
print("ready", flush=True)
GLib.timeout_add_seconds(20, loop.quit)
loop.run()
