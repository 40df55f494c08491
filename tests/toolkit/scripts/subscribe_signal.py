"""Prints "ready", then the type and value of each signal of interface <name>."""
import sys

from gi.repository import Gio, GLib

bus = Gio.bus_get_sync(Gio.BusType.SYSTEM, None)
bus.signal_subscribe(None, sys.argv[1], None, None, None, Gio.DBusSignalFlags.NONE,
                     lambda *signal: print(signal[-1].get_type_string(), repr(signal[-1].unpack()), flush=True))
# The match rule is in place once a later call has returned.
bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId", None, None, 0, -1, None)
print("ready", flush=True)
GLib.MainLoop().run()
