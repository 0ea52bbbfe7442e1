// One QGuiApplication (xcb, on the session's display) for the whole test program: the clipboard
// lives in it, and the helpers keep its event loop turning while they wait.
#include <gtest/gtest.h>

#include <QGuiApplication>
#include <memory>

namespace {

class QtApplicationEnvironment final : public ::testing::Environment {
  public:
    void SetUp() override {
        static int argc = 1;
        static char name[] = "desktop_linux_e2e_tests";
        static char* argv[] = {name, nullptr};
        qputenv("QT_QPA_PLATFORM", "xcb");
        // As the application runs: Qt's loop without GLib (the input-method and accessibility
        // libraries dispatch on threads of their own), a setting the clients we start do not
        // inherit.
        qputenv("QT_NO_GLIB", "1");
        application_ = std::make_unique<QGuiApplication>(argc, argv);
        qunsetenv("QT_NO_GLIB");
    }
    void TearDown() override { application_.reset(); }

  private:
    std::unique_ptr<QGuiApplication> application_;
};

const auto* const registered = ::testing::AddGlobalTestEnvironment(new QtApplicationEnvironment);

}  // namespace
