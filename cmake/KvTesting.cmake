# kv_test(<name> SOURCES <files...> [LIBS <targets...>] [PROXY] [TIMEOUT <s>])
#
# One GoogleTest executable is one ctest test: under Wine every program start
# costs about a second, so suites group many cases into one program.
# On Windows builds the program runs through the Wine wrapper; PROXY makes Wine
# load our recording d3d9.dll from the program's folder instead of its own.
# Every Windows program carries the crash filter of tests/support: a fault ends
# it at once with a backtrace instead of leaving it in Wine's debugger.
if(WIN32)
  add_library(kv_crash_handler OBJECT ${CMAKE_SOURCE_DIR}/tests/support/KvCrashHandler.cpp)
  target_include_directories(kv_crash_handler INTERFACE ${CMAKE_SOURCE_DIR}/tests/support)
endif()

function(kv_test name)
  cmake_parse_arguments(T "PROXY" "TIMEOUT" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest_main)
  if(WIN32)
    target_link_libraries(${name} PRIVATE kv_crash_handler)
  endif()
  add_test(NAME ${name} COMMAND ${name})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 900)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT})
  if(WIN32 AND T_PROXY)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "WINEDLLOVERRIDES=d3d9=n,b;mscoree,mshtml=")
    if(TARGET d3d9recorder)
      add_dependencies(${name} d3d9recorder)
    endif()
  endif()
endfunction()
