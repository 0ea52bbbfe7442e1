# Finds whisper.cpp for the optional model engine (option KELVO_WITH_WHISPER): its CMake package
# first, then pkg-config. Sets KELVO_WHISPER_TARGET to an imported target visible everywhere, or
# leaves it empty (the build then goes on without the engine, and the app reports the model
# engine unavailable). Point CMAKE_PREFIX_PATH at a private installation of whisper.cpp.
set(KELVO_WHISPER_TARGET "")
if(KELVO_WITH_WHISPER)
  find_package(whisper CONFIG QUIET)
  if(TARGET whisper)
    set(KELVO_WHISPER_TARGET whisper)
    message(STATUS "whisper.cpp ${WHISPER_VERSION} found (CMake package): building the whisper model engine")
  else()
    pkg_check_modules(WHISPER QUIET IMPORTED_TARGET GLOBAL whisper)
    if(WHISPER_FOUND)
      set(KELVO_WHISPER_TARGET PkgConfig::WHISPER)
      message(STATUS "whisper.cpp ${WHISPER_VERSION} found (pkg-config): building the whisper model engine")
    else()
      message(STATUS "whisper.cpp not found: building without the whisper model engine")
    endif()
  endif()
endif()
