"""Calls a toolkit server's two methods with dbus-python; prints one line per reply.

The payload's signature is given explicitly: the server introspects its payload
as "a*", which is no D-Bus signature a client can marshal to."""
import sys

import dbus

name = sys.argv[1]
proxy = dbus.SystemBus().get_object(name, "/" + name.replace(".", "/"), introspect=False)
server = dbus.Interface(proxy, name)


def show(reply):
    print(str(reply[0]), int(reply[1]), str(reply[2]), str(reply[3]), [int(item[0]) for item in reply[4]])


show(server.SendMessage("py", dbus.UInt32(5), "t", "hello", signature="suss"))
payload = dbus.Array([dbus.Struct((dbus.Byte(b),), signature="y") for b in (1, 2, 3)], signature="(y)")
show(server.SendMessageWithBuffer("py", dbus.UInt32(6), "t", "bytes", payload, signature="sussa(y)"))
