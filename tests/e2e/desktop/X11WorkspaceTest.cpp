// The permission helpers against the session's X server and buses.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdlib>

#include "X11TestWindow.h"
#include "platform/linux/LinuxDesktopPermissions.h"
#include "platform/linux/X11Workspace.h"

namespace kelvo::platform {
namespace {

using test::waitUntil;
using Pane = Workspace::PermissionPane;

TEST(X11WorkspaceTest, PermissionChecksAndTheDesktopsOwnSettingsPage) {
    // The session's accessibility bus was started enabled.
    EXPECT_TRUE(LinuxDesktopPermissions::isAccessibilityEnabled());
    setenv("XDG_SESSION_TYPE", "x11", 1);
    EXPECT_TRUE(LinuxDesktopPermissions::isX11Session());
    EXPECT_TRUE(LinuxDesktopPermissions::hasInputMonitoringAccess("Control_R"));
    EXPECT_NE(LinuxDesktopPermissions::helpText(Pane::inputMonitoring, false).find("input"),
              std::string::npos);

    // A stand-in for GNOME's settings program records how it was started.
    QTemporaryDir bin;
    QString record = bin.filePath("started-with");
    QFile program(bin.filePath("gnome-control-center"));
    ASSERT_TRUE(program.open(QIODevice::WriteOnly));
    program.write(
        QString("#!/bin/sh\necho \"$@\" > '%1.tmp' && mv '%1.tmp' '%1'\n").arg(record).toUtf8());
    program.close();
    program.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    std::string path = bin.path().toStdString() + ":" + std::getenv("PATH");
    setenv("PATH", path.c_str(), 1);

    X11Workspace workspace;
    setenv("XDG_CURRENT_DESKTOP", "ubuntu:GNOME", 1);
    EXPECT_TRUE(workspace.openPermissionHelp(Pane::accessibility));
    EXPECT_TRUE(waitUntil([&] { return QFile::exists(record); }));
    QFile started(record);
    ASSERT_TRUE(started.open(QIODevice::ReadOnly));
    EXPECT_EQ(started.readAll().trimmed(), "universal-access");
    // X11 needs no Input Monitoring permission: the caller shows the help text instead.
    EXPECT_FALSE(workspace.openPermissionHelp(Pane::inputMonitoring));
    setenv("XDG_CURRENT_DESKTOP", "SomeOtherDesktop", 1);
    EXPECT_FALSE(workspace.openPermissionHelp(Pane::accessibility));
}

}  // namespace
}  // namespace kelvo::platform
