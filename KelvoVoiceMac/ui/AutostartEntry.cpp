#include "KelvoVoiceMac/ui/AutostartEntry.h"

#include <cstdlib>
#include <fstream>
#include <system_error>

#include "core/support/AtomicFile.h"
#include "core/support/Error.h"

namespace kelvo::app {
namespace {

std::filesystem::path absoluteFolder(const char* value) {
    if (value == nullptr || *value == '\0') {
        return {};
    }
    std::filesystem::path folder(value);
    return folder.is_absolute() ? folder : std::filesystem::path();
}

// The Exec value for one program path: quoted as the desktop entry format asks for arguments, then
// escaped again as a string value ("\\" for a backslash), with "%" doubled so that it is not taken
// for a field code.
std::string execValue(const std::string& program) {
    std::string quoted = "\"";
    for (char character : program) {
        if (character == '"' || character == '`' || character == '$' || character == '\\') {
            quoted += '\\';
        }
        quoted += character;
    }
    quoted += '"';
    std::string value;
    for (char character : quoted) {
        if (character == '\\') {
            value += "\\\\";
        } else if (character == '%') {
            value += "%%";
        } else {
            value += character;
        }
    }
    return value;
}

}  // namespace

AutostartEntry::AutostartEntry(std::filesystem::path file, std::filesystem::path executable)
    : file_(std::move(file)), executable_(std::move(executable)) {}

std::filesystem::path AutostartEntry::defaultFile() {
    std::filesystem::path configHome = absoluteFolder(std::getenv("XDG_CONFIG_HOME"));
    if (configHome.empty()) {
        std::filesystem::path home = absoluteFolder(std::getenv("HOME"));
        if (home.empty()) {
            throw Error(
                "cannot locate the autostart folder: neither XDG_CONFIG_HOME nor HOME is set");
        }
        configHome = home / ".config";
    }
    return configHome / "autostart" / fileName;
}

bool AutostartEntry::isEnabled() const {
    std::ifstream in(file_);
    if (!in) {
        return false;
    }
    std::string line;
    while (std::getline(in, line)) {
        if (line == "Hidden=true") {
            return false;
        }
    }
    return true;
}

void AutostartEntry::enable() const {
    std::error_code error;
    std::filesystem::create_directories(file_.parent_path(), error);
    if (error) {
        throw FileError("cannot create " + file_.parent_path().string() + ": " + error.message());
    }
    writeFileAtomically(file_, contents());
}

void AutostartEntry::disable() const {
    std::error_code error;
    std::filesystem::remove(file_, error);
    if (error) {
        throw FileError("cannot remove " + file_.string() + ": " + error.message());
    }
}

std::string AutostartEntry::contents() const {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=KelvoVoice\n"
           "Comment=Push-to-talk Japanese dictation\n"
           "Exec=" +
           execValue(executable_.string()) +
           "\n"
           "Icon=kelvovoice\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

}  // namespace kelvo::app
