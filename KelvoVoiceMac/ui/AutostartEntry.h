#pragma once

// AutostartEntry is "start at login" on a freedesktop desktop: the application starts with the
// session when a desktop entry for it exists in the user's autostart folder
// ($XDG_CONFIG_HOME/autostart, ~/.config/autostart when that is unset), and the file's presence is
// the whole setting. enable() writes the entry atomically (creating the folder), with an Exec line
// that runs the given executable; disable() removes it. An entry the user switched off with
// "Hidden=true" counts as absent. Qt-free; blocking file I/O, any one thread at a time.

#include <filesystem>
#include <string>

namespace kelvo::app {

class AutostartEntry {
  public:
    AutostartEntry(std::filesystem::path file, std::filesystem::path executable);

    // "<config home>/autostart/kelvovoice.desktop". Throws kelvo::Error when neither
    // XDG_CONFIG_HOME nor HOME names an absolute folder.
    static std::filesystem::path defaultFile();

    bool isEnabled() const;
    // Throws kelvo::FileError when the entry cannot be written; nothing changes then.
    void enable() const;
    // Throws kelvo::FileError when an existing entry cannot be removed.
    void disable() const;

    // The desktop entry that enable() writes.
    std::string contents() const;

    const std::filesystem::path& file() const noexcept { return file_; }

    static constexpr const char* fileName = "kelvovoice.desktop";

  private:
    std::filesystem::path file_;
    std::filesystem::path executable_;
};

}  // namespace kelvo::app
