// kelvovoice: the desktop application.

#include <QtGlobal>

#include "KelvoVoiceMac/app/KelvoVoiceMacApp.h"

int main(int argc, char** argv) {
    // Qt's main loop without GLib: libatspi and libibus each get a GLib thread of their own, and
    // a main loop that iterated GLib's default context would also dispatch the connections that
    // libatspi leaves there, concurrently with its own thread (crashes in libdbus). Read once,
    // when the application object makes its event dispatcher; the application unsets it again so
    // that programs it starts do not inherit it.
    qputenv("QT_NO_GLIB", "1");
    kelvo::app::KelvoVoiceMacApp app(argc, argv);
    return app.run();
}
