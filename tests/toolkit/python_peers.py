"""call <name>: calls toolkit server <name> with dbus-python; watch <name>: prints "ready", then its signals."""
import sys

mode, name = sys.argv[1:]
if mode == "call":
    import dbus
    reply = dbus.SystemBus().call_blocking(name, "/" + name.replace(".", "/"), name, "SendMessageWithBuffer",
                                           "sussa(y)", ("py", 6, "echo", "bytes", [(1,), (2,), (3,)]))
    print(*reply[:4], [int(byte) for (byte,) in reply[4]])
else:
    from gi.repository import Gio, GLib
    bus = Gio.bus_get_sync(Gio.BusType.SYSTEM, None)
    bus.signal_subscribe(None, name, None, None, None, 0, lambda *s: print(s[-1].get_type_string(), s[-1].unpack()))
    bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId", None, None, 0, -1)
    print("ready")  # the match rule is in place once a later call (GetId) has returned
    GLib.MainLoop().run()
