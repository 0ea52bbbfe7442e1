#include "platform/linux/Fcitx5AddonInstaller.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QString>

namespace kelvo::platform {

namespace {

QString descriptionFileName() {
    return QString::fromLatin1(Fcitx5AddonInstaller::addonName) + ".conf";
}

// The same description as the one installed with the package (fcitx5/kelvovoicecommit.conf.in),
// with the library named by its absolute path (without ".so": fcitx5 appends it).
QByteArray description(const QString& libraryWithoutSuffix) {
    return "[Addon]\n"
           "Name=KelvoVoice Commit\n"
           "Comment=Lets KelvoVoice commit dictated text into the focused input context\n"
           "Type=SharedLibrary\n"
           "Library=" +
           libraryWithoutSuffix.toUtf8() +
           "\n"
           "Category=Module\n"
           "OnDemand=False\n"
           "Configurable=False\n"
           "\n"
           "[Addon/Dependencies]\n"
           "0=core:5.0.0\n"
           "1=dbus\n"
           "\n"
           "[Addon/OptionalDependencies]\n"
           "0=wayland\n";
}

}  // namespace

std::vector<std::string> Fcitx5AddonInstaller::defaultLibraryCandidates() {
    std::vector<std::string> candidates;
#ifdef KELVO_FCITX5_ADDON_INSTALLED_LIBRARY
    candidates.emplace_back(KELVO_FCITX5_ADDON_INSTALLED_LIBRARY);
#endif
#ifdef KELVO_FCITX5_ADDON_BUILD_LIBRARY
    candidates.emplace_back(KELVO_FCITX5_ADDON_BUILD_LIBRARY);
#endif
    return candidates;
}

Fcitx5AddonInstaller::Fcitx5AddonInstaller(std::vector<std::string> libraryCandidates)
    : libraryCandidates_(std::move(libraryCandidates)) {}

std::string Fcitx5AddonInstaller::userDescriptionPath() const {
    return (QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
            "/fcitx5/addon/" + descriptionFileName())
        .toStdString();
}

Fcitx5AddonInstaller::Installation Fcitx5AddonInstaller::installation() const {
    if (QFileInfo::exists(QString::fromStdString(userDescriptionPath()))) {
        return Installation::forUser;
    }
    // fcitx5 reads the XDG data folders (and its own, /usr/share/fcitx5 on Debian).
    QStringList folders = QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation);
    folders.append(QStringLiteral("/usr/share"));
    for (const QString& folder : folders) {
        if (QFileInfo::exists(folder + "/fcitx5/addon/" + descriptionFileName())) {
            return Installation::systemWide;
        }
    }
    return Installation::none;
}

std::optional<std::string> Fcitx5AddonInstaller::library() const {
    for (const std::string& candidate : libraryCandidates_) {
        if (QFileInfo(QString::fromStdString(candidate)).isFile()) {
            return candidate;
        }
    }
    return std::nullopt;
}

std::string Fcitx5AddonInstaller::installForUser() const {
    std::optional<std::string> found = library();
    if (!found) {
        return "the addon library was not found (this build has no Fcitx5 addon)";
    }
    QString libraryPath = QFileInfo(QString::fromStdString(*found)).absoluteFilePath();
    if (libraryPath.endsWith(".so")) {
        libraryPath.chop(3);
    }
    const QString path = QString::fromStdString(userDescriptionPath());
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        return "cannot create " + QFileInfo(path).absolutePath().toStdString();
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(description(libraryPath)) < 0 ||
        !file.commit()) {
        return "cannot write " + path.toStdString() + ": " + file.errorString().toStdString();
    }
    return {};
}

}  // namespace kelvo::platform
