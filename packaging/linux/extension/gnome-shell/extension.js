// Brindlemark's GNOME Shell extension: under Wayland no program may ask which window is in front,
// so the Shell answers for it. On the session bus, as org.brindlemark.FrontWindow, it tells the
// focused window's application id and GTK object path (Nautilus's /org/gnome/Nautilus/window/N,
// its key in OpenWindowsWithLocations) and the object path of the most recently used window of
// the applications the caller names. Nothing else: no titles, no other windows.
'use strict';

const { Gio, Meta } = imports.gi;

const BUS_NAME = 'org.brindlemark.FrontWindow';
const OBJECT_PATH = '/org/brindlemark/FrontWindow';
const INTERFACE = `<node>
  <interface name="org.brindlemark.FrontWindow">
    <method name="Get">
      <arg type="as" name="applications" direction="in"/>
      <arg type="s" name="focusedApplication" direction="out"/>
      <arg type="s" name="focusedObjectPath" direction="out"/>
      <arg type="s" name="lastUsedObjectPath" direction="out"/>
    </method>
  </interface>
</node>`;

// A dialog stands for the window it belongs to.
function owner(window) {
    for (let hops = 0; window && window.get_transient_for() && hops < 8; ++hops)
        window = window.get_transient_for();
    return window;
}

function applicationOf(window) {
    return window.get_gtk_application_id() || window.get_sandboxed_app_id() ||
        window.get_wm_class() || '';
}

class FrontWindow {
    Get(applications) {
        const focused = owner(global.display.get_focus_window());
        // The tab list is in the order the windows were last used, the focused one first.
        const last = global.display.get_tab_list(Meta.TabList.NORMAL_ALL, null)
            .map(owner)
            .find(w => w && applications.includes(applicationOf(w)) &&
                w.get_gtk_window_object_path());
        return [
            focused ? applicationOf(focused) : '',
            (focused && focused.get_gtk_window_object_path()) || '',
            last ? last.get_gtk_window_object_path() : '',
        ];
    }
}

class Extension {
    enable() {
        this._object = Gio.DBusExportedObject.wrapJSObject(INTERFACE, new FrontWindow());
        this._object.export(Gio.DBus.session, OBJECT_PATH);
        this._name = Gio.bus_own_name_on_connection(Gio.DBus.session, BUS_NAME,
            Gio.BusNameOwnerFlags.NONE, null, null);
    }

    disable() {
        Gio.bus_unown_name(this._name);
        this._object.unexport();
        this._object = null;
    }
}

function init() {
    return new Extension();
}
