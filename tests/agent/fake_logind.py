# A stand-in for systemd-logind on a private system bus: the Manager's
# Inhibit (a pipe whose write end is the inhibitor), ListInhibitors and the
# PrepareForSleep signal, plus test.FakeLogind.EmitPrepareForSleep(b) for
# tests to trigger it. Run with /usr/bin/python3 (it needs python3-dbus).
import os, dbus, dbus.service, dbus.mainloop.glib
from gi.repository import GLib
MGR = 'org.freedesktop.login1.Manager'; CTL = 'test.FakeLogind'
class Manager(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, '/org/freedesktop/login1'); self.inhibitors = {}
    @dbus.service.method(MGR, in_signature='ssss', out_signature='h', sender_keyword='sender')
    def Inhibit(self, what, who, why, mode, sender=None):
        if mode not in ('block', 'delay'):
            raise dbus.exceptions.DBusException('invalid mode', name='org.freedesktop.DBus.Error.InvalidArgs')
        r, w = os.pipe()
        pid = int(self.connection.call_blocking('org.freedesktop.DBus', '/org/freedesktop/DBus',
                  'org.freedesktop.DBus', 'GetConnectionUnixProcessID', 's', (sender,)))
        self.inhibitors[r] = (what, who, why, mode, int(self.connection.get_unix_user(sender)), pid)
        GLib.io_add_watch(r, GLib.PRIORITY_DEFAULT, GLib.IO_HUP | GLib.IO_ERR | GLib.IO_IN, self._released)
        fd = dbus.types.UnixFd(w); os.close(w)
        return fd
    def _released(self, r, cond):
        self.inhibitors.pop(r, None); os.close(r); print('inhibitor released', flush=True); return False
    @dbus.service.method(MGR, in_signature='', out_signature='a(ssssuu)')
    def ListInhibitors(self):
        return dbus.Array([dbus.Struct(v, signature='ssssuu') for v in self.inhibitors.values()], signature='(ssssuu)')
    @dbus.service.signal(MGR, signature='b')
    def PrepareForSleep(self, start): pass
    @dbus.service.method(CTL, in_signature='b', out_signature='')
    def EmitPrepareForSleep(self, start): self.PrepareForSleep(start)
dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SystemBus()
mgr = Manager(bus); name = dbus.service.BusName('org.freedesktop.login1', bus, do_not_queue=True)
print('ready', flush=True)
GLib.MainLoop().run()
