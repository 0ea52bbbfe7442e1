# Installation and the Debian package of the desktop application.
#   cmake --install build [--prefix DIR]   binary, desktop entry, icons, autostart template
#   (cd build && cpack -G DEB)             kelvovoice_<version>_<arch>.deb
# after `cmake --build build --target kelvo kelvovoice` (or a full build).
include(GNUInstallDirs)
# Installing and packaging take what is built and never build the whole tree (tests, benchmarks)
# first: build the kelvo and kelvovoice targets, then install or run cpack.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

if(KELVO_BUILD_APP)
  install(TARGETS kelvovoice RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES packaging/kelvovoice.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES KelvoVoiceMac/shell/icons/kelvovoice.svg
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
  install(FILES KelvoVoiceMac/shell/icons/mic.fill.svg
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/status
    RENAME kelvovoice-mic.fill.svg)
  install(FILES KelvoVoiceMac/shell/icons/mic.badge.waveform.svg
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/status
    RENAME kelvovoice-mic.badge.waveform.svg)
  # Not in /etc/xdg/autostart, which would start it for every user: the settings window copies
  # this template to $XDG_CONFIG_HOME/autostart when the user asks to start at login.
  install(FILES packaging/kelvovoice-autostart.desktop
    DESTINATION ${CMAKE_INSTALL_DATADIR}/kelvovoice/autostart RENAME kelvovoice.desktop)
endif()
install(TARGETS kelvo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The pinned whisper.cpp (cmake/KelvoWhisper.cmake): its libraries and ggml's CPU modules are
# private to this package, in lib/kelvovoice, found through the programs' RUNPATH and loaded from
# there by the engine. No whisper package is needed or named.
set(kelvo_private_libraries lib/kelvovoice)
if(KELVO_WHISPER_BUNDLED)
  # The libraries only: no headers in the package.
  set_target_properties(${KELVO_WHISPER_LIBRARIES} PROPERTIES PUBLIC_HEADER "")
  install(TARGETS ${KELVO_WHISPER_LIBRARIES}
    LIBRARY DESTINATION ${kelvo_private_libraries} NAMELINK_SKIP)
  foreach(program kelvo kelvovoice)
    if(TARGET ${program})
      set_target_properties(${program} PROPERTIES
        INSTALL_RPATH "$ORIGIN/../${kelvo_private_libraries}")
    endif()
  endforeach()
endif()

set(CPACK_PACKAGE_NAME kelvovoice)
set(CPACK_PACKAGE_VENDOR "KelvoVoice")
set(CPACK_PACKAGE_CONTACT "KelvoVoice maintainers <maintainers@kelvovoice.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Push-to-talk Japanese dictation for the Linux desktop")
set(CPACK_PACKAGE_DESCRIPTION
  "Hold a trigger key (Right Ctrl) and speak: the speech is recognised on the device, corrected with your own dictionary, cleaned of filler words and typed at the cursor of the application in front. Includes the kelvo command-line tool.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
# Shared libraries are found by dpkg-shlibdeps; what is loaded or spoken to without being linked
# is named here: Qt's X11 platform plugin, the accessibility bus, the English fallback model.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
if(KELVO_WHISPER_BUNDLED)
  # The private libraries' own dependencies (the C and C++ runtime) are what the package needs.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${KELVO_WHISPER_LIBRARY_DIR}")
endif()
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, at-spi2-core, pocketsphinx-en-us")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-noto-cjk, pulseaudio | pipewire-pulse")
include(CPack)
