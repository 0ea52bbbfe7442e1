# whisper.cpp for the model engine (option KELVO_WITH_WHISPER).
#
# The system's whisper.cpp when its CMake package or pkg-config file is found at version 1.8.3 or
# later (CMAKE_PREFIX_PATH may point at a private installation). Otherwise the build takes
# upstream whisper.cpp at one exact commit (kelvo_whisper_commit below) and checks that it got it:
# online with FetchContent's git clone, offline with CMake's own override
#   -DFETCHCONTENT_SOURCE_DIR_WHISPER=<extracted whisper.cpp-1.9.3 source>
# (scripts/whisper-source prepares that folder from ../shared/vendor when the tarball is there).
#
# The engine built here must run on any x86-64 CPU and still use AVX2, AVX-512 and F16C where the
# CPU has them. ggml does that with one CPU backend per instruction-set level, each a module that
# is dlopen()ed at run time, the best one for this CPU chosen by its score (GGML_BACKEND_DL and
# GGML_CPU_ALL_VARIANTS). ggml's build requires shared libraries for that, and rightly: the
# modules and whisper must share one ggml (one backend registry, one log callback). So whisper,
# ggml and the CPU modules are private shared libraries, built into <build>/bin and installed
# with the package into <prefix>/lib/kelvovoice (RUNPATH $ORIGIN), never on the system library
# path; the package depends on no whisper package.
#
# Sets, for the rest of the build:
#   KELVO_WHISPER_TARGET        the target to link, or empty (then no engine is built)
#   KELVO_WHISPER_BUNDLED       ON when the pinned source is built here
#   KELVO_WHISPER_LIBRARIES     with the pinned source: the shared libraries to install
#   KELVO_WHISPER_LIBRARY_DIR   with the pinned source: where they are built
#   KELVO_WHISPER_SOURCE_DIR    with the pinned source: its folder (models/for-tests-ggml-*.bin)
#   KELVO_WHISPER_TEST_MODEL    the model file the whisper tests use: KELVO_TEST_WHISPER_MODEL from
#                               the environment at configure time, else the pinned source's
#                               weightless for-tests model (tiny); empty: those tests skip
set(KELVO_WHISPER_TARGET "")
set(KELVO_WHISPER_BUNDLED OFF)
set(KELVO_WHISPER_LIBRARIES "")
set(KELVO_WHISPER_LIBRARY_DIR "")
set(KELVO_WHISPER_SOURCE_DIR "")
set(KELVO_WHISPER_TEST_MODEL "")

set(kelvo_whisper_minimum 1.8.3)
set(kelvo_whisper_version 1.9.3)
set(kelvo_whisper_commit 371b5a7561823ab2bb32142d2751e35e7534727b)

if(NOT KELVO_WITH_WHISPER)
  message(STATUS "whisper.cpp: KELVO_WITH_WHISPER=OFF, building without the whisper model engine")
  return()
endif()

# The version a whisper.cpp source tree declares in its top CMakeLists.txt.
function(kelvo_whisper_source_version source_dir out)
  file(STRINGS "${source_dir}/CMakeLists.txt" lines
    REGEX "^set\\(WHISPER_VERSION_(MAJOR|MINOR|PATCH) [0-9]+\\)")
  set(version "")
  foreach(part MAJOR MINOR PATCH)
    foreach(line IN LISTS lines)
      if(line MATCHES "WHISPER_VERSION_${part} ([0-9]+)")
        list(APPEND version "${CMAKE_MATCH_1}")
      endif()
    endforeach()
  endforeach()
  list(JOIN version "." version)
  set(${out} "${version}" PARENT_SCOPE)
endfunction()

function(kelvo_add_pinned_whisper)
  include(FetchContent)
  if(POLICY CMP0169)
    cmake_policy(SET CMP0169 OLD)  # FetchContent_Populate: added below with EXCLUDE_FROM_ALL
  endif()
  FetchContent_Declare(whisper
    GIT_REPOSITORY https://github.com/ggml-org/whisper.cpp.git
    GIT_TAG ${kelvo_whisper_commit})
  FetchContent_GetProperties(whisper)
  if(NOT whisper_POPULATED)
    FetchContent_Populate(whisper)
  endif()

  if(FETCHCONTENT_SOURCE_DIR_WHISPER)
    set(origin "${FETCHCONTENT_SOURCE_DIR_WHISPER} (FETCHCONTENT_SOURCE_DIR_WHISPER)")
  else()
    set(origin "commit ${kelvo_whisper_commit}, fetched")
    execute_process(COMMAND git rev-parse HEAD WORKING_DIRECTORY "${whisper_SOURCE_DIR}"
      OUTPUT_VARIABLE head OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
    if(failed OR NOT head STREQUAL kelvo_whisper_commit)
      message(FATAL_ERROR "whisper.cpp: the fetched source in ${whisper_SOURCE_DIR} is at "
        "'${head}', not at the pinned commit ${kelvo_whisper_commit}. Delete that folder and "
        "configure again.")
    endif()
  endif()
  if(NOT EXISTS "${whisper_SOURCE_DIR}/CMakeLists.txt")
    message(FATAL_ERROR "whisper.cpp: no source in ${whisper_SOURCE_DIR}")
  endif()
  kelvo_whisper_source_version("${whisper_SOURCE_DIR}" version)
  if(NOT version STREQUAL kelvo_whisper_version)
    message(FATAL_ERROR "whisper.cpp: ${origin} is version '${version}'; this build needs "
      "${kelvo_whisper_version} (tag v${kelvo_whisper_version}, commit ${kelvo_whisper_commit}).")
  endif()

  # whisper.cpp's own options; plain variables here reach its option() calls (CMP0077) and stay
  # in this function's scope, so the project's settings are untouched.
  set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
  set(BUILD_SHARED_LIBS ON)
  set(GGML_BACKEND_DL ON)
  set(GGML_CPU_ALL_VARIANTS ON)
  set(GGML_NATIVE OFF)
  # ggml's own thread pool: no libgomp and no OpenMP threads spinning after a decode.
  set(GGML_OPENMP OFF)
  set(GGML_CCACHE OFF)  # the project's compiler launcher applies already
  set(WHISPER_BUILD_TESTS OFF)
  set(WHISPER_BUILD_EXAMPLES OFF)
  set(WHISPER_BUILD_SERVER OFF)
  set(WHISPER_BUILD_IS_DEV OFF)
  set(WHISPER_ALL_WARNINGS OFF)
  # Third-party code is not instrumented (the sanitizer presets check the project's own code),
  # is optimised in every build type (a debug build still decodes at speed) and carries no debug
  # information (its fourteen CPU variants compile faster without; the package strips it anyway).
  foreach(lang C CXX)
    string(REGEX REPLACE "-fsanitize[^ ]*" "" CMAKE_${lang}_FLAGS "${CMAKE_${lang}_FLAGS}")
    foreach(config DEBUG RELWITHDEBINFO)
      set(CMAKE_${lang}_FLAGS_${config} "-O2 -DNDEBUG")
    endforeach()
  endforeach()
  set(CMAKE_INSTALL_RPATH "$ORIGIN")
  add_subdirectory("${whisper_SOURCE_DIR}" "${whisper_BINARY_DIR}" EXCLUDE_FROM_ALL)

  # whisper.cpp puts its libraries and ggml's modules into <build>/bin.
  set(library_dir "${CMAKE_BINARY_DIR}/bin")
  set(libraries whisper ggml ggml-base)
  foreach(backend IN LISTS GGML_AVAILABLE_BACKENDS)
    list(APPEND libraries ${backend})
  endforeach()
  list(REMOVE_DUPLICATES libraries)
  list(FILTER GGML_AVAILABLE_BACKENDS INCLUDE REGEX "^ggml-cpu-")
  list(TRANSFORM GGML_AVAILABLE_BACKENDS REPLACE "^ggml-cpu-" "")
  list(JOIN GGML_AVAILABLE_BACKENDS ", " variants)
  message(STATUS "whisper.cpp ${version} (${origin}): building the whisper model engine, "
    "CPU variants ${variants}")

  set(KELVO_WHISPER_TARGET whisper PARENT_SCOPE)
  set(KELVO_WHISPER_BUNDLED ON PARENT_SCOPE)
  set(KELVO_WHISPER_LIBRARIES "${libraries}" PARENT_SCOPE)
  set(KELVO_WHISPER_LIBRARY_DIR "${library_dir}" PARENT_SCOPE)
  set(KELVO_WHISPER_SOURCE_DIR "${whisper_SOURCE_DIR}" PARENT_SCOPE)
  set(KELVO_WHISPER_TEST_MODEL "${whisper_SOURCE_DIR}/models/for-tests-ggml-tiny.bin" PARENT_SCOPE)
endfunction()

find_package(whisper ${kelvo_whisper_minimum} CONFIG QUIET)
if(TARGET whisper)
  set(KELVO_WHISPER_TARGET whisper)
  message(STATUS "whisper.cpp ${whisper_VERSION} (system, CMake package): building the whisper model engine")
else()
  pkg_check_modules(WHISPER QUIET IMPORTED_TARGET GLOBAL "whisper>=${kelvo_whisper_minimum}")
  if(WHISPER_FOUND)
    set(KELVO_WHISPER_TARGET PkgConfig::WHISPER)
    message(STATUS "whisper.cpp ${WHISPER_VERSION} (system, pkg-config): building the whisper model engine")
  else()
    kelvo_add_pinned_whisper()
  endif()
endif()
if(DEFINED ENV{KELVO_TEST_WHISPER_MODEL})
  set(KELVO_WHISPER_TEST_MODEL "$ENV{KELVO_TEST_WHISPER_MODEL}")
endif()
