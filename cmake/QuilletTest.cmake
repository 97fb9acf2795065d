# quillet_add_test(<name> SOURCES <files...> [INTERNAL] [LIBS <libs...>]
#                  [ENVIRONMENT <VAR=value...>] [TIMEOUT <seconds>] [LABELS <labels...>])
#
# Builds one QtTest executable and registers it with CTest. By default the
# test links the shared library through Quillet::Quillet, exactly as a host
# does. INTERNAL links the library's object files instead, for white-box tests
# of pieces the shared library does not export.
function(quillet_add_test name)
  cmake_parse_arguments(T "INTERNAL" "TIMEOUT" "SOURCES;LIBS;ENVIRONMENT;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  set_target_properties(${name} PROPERTIES AUTOMOC ON)
  if(T_INTERNAL)
    target_link_libraries(${name} PRIVATE QuilletObjects)
  else()
    target_link_libraries(${name} PRIVATE Quillet::Quillet)
  endif()
  target_link_libraries(${name} PRIVATE Qt5::Test ${T_LIBS})
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${QUILLET_TESTS_DIR})
  quillet_set_warnings(${name})
  add_test(NAME ${name} COMMAND ${name})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  set_tests_properties(${name} PROPERTIES
    TIMEOUT ${T_TIMEOUT}
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QUILLET_TEST_DATA=${QUILLET_TESTS_DIR}/data;${T_ENVIRONMENT}")
  if(T_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${T_LABELS}")
  endif()
endfunction()
