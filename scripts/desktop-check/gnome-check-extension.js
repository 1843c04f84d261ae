// For scripts/desktop-check only, never installed by Brindlemark: lets the check activate a
// window (by a text its GTK object path, class or title holds) and take a screenshot, which GNOME
// Shell allows no other program under Wayland.
'use strict';

const { Gio, Shell } = imports.gi;

const INTERFACE = `<node><interface name="org.brindlemark.DesktopCheck">
  <method name="Activate"><arg type="s" name="text" direction="in"/><arg type="s" name="found" direction="out"/></method>
  <method name="Screenshot"><arg type="s" name="path" direction="in"/></method>
</interface></node>`;

class Check {
    Activate(text) {
        for (const actor of global.get_window_actors()) {
            const w = actor.meta_window;
            const described = `${w.get_gtk_window_object_path() || ''}|${w.get_wm_class() || ''}|${w.get_title() || ''}`;
            if (described.includes(text)) {
                w.activate(global.get_current_time());
                return described;
            }
        }
        return '';
    }

    Screenshot(path) {
        const stream = Gio.File.new_for_path(path).replace(null, false, Gio.FileCreateFlags.NONE, null);
        new Shell.Screenshot().screenshot(false, stream, (shooter, result) => {
            shooter.screenshot_finish(result);
            stream.close(null);
        });
    }
}

class Extension {
    enable() {
        this._object = Gio.DBusExportedObject.wrapJSObject(INTERFACE, new Check());
        this._object.export(Gio.DBus.session, '/org/brindlemark/DesktopCheck');
        this._name = Gio.bus_own_name_on_connection(Gio.DBus.session, 'org.brindlemark.DesktopCheck',
            Gio.BusNameOwnerFlags.NONE, null, null);
    }

    disable() {
        Gio.bus_unown_name(this._name);
        this._object.unexport();
    }
}

function init() {
    return new Extension();
}
