"""Calls a toolkit server with dbus-python (explicit signature: it introspects as "a*")."""
import sys

import dbus

name = sys.argv[1]
server = dbus.Interface(dbus.SystemBus().get_object(name, "/" + name.replace(".", "/"), introspect=False), name)
payload = dbus.Array([dbus.Struct((dbus.Byte(b),), signature="y") for b in (1, 2, 3)], signature="(y)")
reply = server.SendMessageWithBuffer("py", dbus.UInt32(6), "t", "bytes", payload, signature="sussa(y)")
print(str(reply[0]), int(reply[1]), str(reply[2]), str(reply[3]), [int(item[0]) for item in reply[4]])
