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
        application_ = std::make_unique<QGuiApplication>(argc, argv);
    }
    void TearDown() override { application_.reset(); }

  private:
    std::unique_ptr<QGuiApplication> application_;
};

const auto* const registered = ::testing::AddGlobalTestEnvironment(new QtApplicationEnvironment);

}  // namespace
