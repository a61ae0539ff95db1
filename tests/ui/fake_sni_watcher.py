# A StatusNotifierWatcher for tests: owns org.kde.StatusNotifierWatcher on the
# session bus (DBUS_SESSION_BUS_ADDRESS), says a host is registered and
# records the items that register. Prints
# "ready" once it owns the name, and "registered <service>" for each item.
import dbus, dbus.service, dbus.mainloop.glib
from gi.repository import GLib

IFACE = 'org.kde.StatusNotifierWatcher'
PROPS = 'org.freedesktop.DBus.Properties'
INTROSPECTION = '''<node>
 <interface name="org.kde.StatusNotifierWatcher">
  <method name="RegisterStatusNotifierItem"><arg name="service" type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg name="service" type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
  <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
  <signal name="StatusNotifierHostRegistered"/>
 </interface>
 <interface name="org.freedesktop.DBus.Properties">
  <method name="Get"><arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="v" direction="out"/></method>
  <method name="GetAll"><arg type="s" direction="in"/><arg type="a{sv}" direction="out"/></method>
 </interface>
</node>'''


class Watcher(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, '/StatusNotifierWatcher')
        self.items = []

    @dbus.service.method(IFACE, in_signature='s', out_signature='', sender_keyword='sender')
    def RegisterStatusNotifierItem(self, service, sender=None):
        item = service if service.startswith(':') or not service.startswith('/') else sender + service
        if item not in self.items:
            self.items.append(item)
        print('registered', item, flush=True)
        self.StatusNotifierItemRegistered(item)

    @dbus.service.method(IFACE, in_signature='s', out_signature='')
    def RegisterStatusNotifierHost(self, service):
        pass

    @dbus.service.signal(IFACE, signature='s')
    def StatusNotifierItemRegistered(self, service):
        pass

    def _props(self):
        return {'RegisteredStatusNotifierItems': dbus.Array(self.items, signature='s'),
                'IsStatusNotifierHostRegistered': True, 'ProtocolVersion': dbus.Int32(0)}

    @dbus.service.method(PROPS, in_signature='ss', out_signature='v')
    def Get(self, interface, name):
        return self._props()[name]

    @dbus.service.method(PROPS, in_signature='s', out_signature='a{sv}')
    def GetAll(self, interface):
        return self._props()

    @dbus.service.method('org.freedesktop.DBus.Introspectable', in_signature='', out_signature='s')
    def Introspect(self):
        return INTROSPECTION


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
watcher = Watcher(bus)
name = dbus.service.BusName('org.kde.StatusNotifierWatcher', bus, do_not_queue=True)
print('ready', flush=True)
GLib.MainLoop().run()
