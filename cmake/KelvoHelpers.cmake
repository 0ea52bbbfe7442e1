# Warnings shared by every target of the project.
add_library(kelvo_warnings INTERFACE)
target_compile_options(kelvo_warnings INTERFACE -Wall -Wextra)
if(KELVO_WARNINGS_AS_ERRORS)
  target_compile_options(kelvo_warnings INTERFACE -Werror)
endif()

# Every unit test executable (the ones under tests/core, tests/cli and tests/app that need no
# headless session) is a dependency of this target and carries the label "unit", so that the
# sanitizer preset builds and runs exactly those and nothing else (no app, no benchmarks, no e2e).
if(NOT TARGET kelvo_unit_tests)
  add_custom_target(kelvo_unit_tests)
endif()

# add_kelvo_test(NAME name SOURCES ... LIBS ... [LABELS ...] [ENVIRONMENT ...] [HEADLESS_SESSION]
#                [UNPRIVILEGED])
# One executable per call; GoogleTest cases are registered with CTest one by one. With
# HEADLESS_SESSION the whole executable is one CTest test run inside scripts/headless-session
# (virtual microphone, Xvfb, D-Bus, AT-SPI), so that its cases share one session, and it runs
# while no other test does. Such tests carry the label "headless". With UNPRIVILEGED as well, the
# session and the program run as an unprivileged user when CTest runs as root
# (scripts/as-test-user), for the programs that refuse root (sway, mozc_server).
function(add_kelvo_test)
  cmake_parse_arguments(T "HEADLESS_SESSION;UNPRIVILEGED" "NAME" "SOURCES;LIBS;LABELS;ENVIRONMENT" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} GTest::gmock GTest::gtest_main kelvo_warnings)
  if(NOT T_HEADLESS_SESSION AND CMAKE_CURRENT_SOURCE_DIR MATCHES "/tests/(core|cli|app)$")
    list(APPEND T_LABELS unit)
    add_dependencies(kelvo_unit_tests ${T_NAME})
  endif()
  # Both properties are lists: their separators must survive being forwarded as arguments.
  set(props "")
  foreach(property LABELS ENVIRONMENT)
    if(T_${property})
      string(REPLACE ";" "\\;" escaped "${T_${property}}")
      list(APPEND props ${property} "${escaped}")
    endif()
  endforeach()
  if(T_HEADLESS_SESSION)
    list(APPEND T_LABELS headless)
    set(runner "")
    if(T_UNPRIVILEGED)
      set(runner "${PROJECT_SOURCE_DIR}/scripts/as-test-user")
    endif()
    add_test(NAME ${T_NAME}
      COMMAND ${runner} "${PROJECT_SOURCE_DIR}/scripts/headless-session" run -- $<TARGET_FILE:${T_NAME}>)
    # A session's dictations, key holds and insertions are paced in real time: on a small machine
    # another test's build-up of load would starve them, so they run alone.
    set_tests_properties(${T_NAME} PROPERTIES RUN_SERIAL TRUE LABELS "${T_LABELS}")
    if(T_ENVIRONMENT)
      set_tests_properties(${T_NAME} PROPERTIES ENVIRONMENT "${T_ENVIRONMENT}")
    endif()
  else()
    # Listing the cases of a sanitized binary on a busy machine can take longer than the default
    # five seconds.
    gtest_discover_tests(${T_NAME} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES ${props})
  endif()
endfunction()
