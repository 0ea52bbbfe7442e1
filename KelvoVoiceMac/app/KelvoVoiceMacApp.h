#pragma once

// KelvoVoiceMacApp is the application entry type: it owns the QApplication and the AppDelegate,
// keeps the process to one instance per user session (a second launch asks the running one to
// show its test window and exits), and runs the event loop. The application lives in the status
// area: closing its last window does not end it; only the menu's "Quit" does.
//
// Constructed once by main() on the main thread; run() returns the process's exit status.

#include <QApplication>
#include <memory>

namespace kelvo::app {

class AppDelegate;
class SingleInstance;

class KelvoVoiceMacApp {
  public:
    KelvoVoiceMacApp(int& argc, char** argv);
    ~KelvoVoiceMacApp();

    KelvoVoiceMacApp(const KelvoVoiceMacApp&) = delete;
    KelvoVoiceMacApp& operator=(const KelvoVoiceMacApp&) = delete;

    int run();

  private:
    QApplication application_;
    std::unique_ptr<SingleInstance> singleInstance_;
    std::unique_ptr<AppDelegate> _appDelegate;
};

}  // namespace kelvo::app
