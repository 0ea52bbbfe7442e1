// kelvovoice: the desktop application.

#include "KelvoVoiceMac/app/KelvoVoiceMacApp.h"

int main(int argc, char** argv) {
    kelvo::app::KelvoVoiceMacApp app(argc, argv);
    return app.run();
}
