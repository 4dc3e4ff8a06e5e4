# The real daemon on roots of its own, one ctest entry a file.
#   qvcd_e2e_test(NAME framing [CONCURRENT] [TIMEOUT 120])
# CONCURRENT: worth running under the thread sanitizer.
function(qvcd_e2e_test)
  cmake_parse_arguments(T "CONCURRENT" "NAME;TIMEOUT" "" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  add_test(NAME e2e.${T_NAME}
    COMMAND /usr/bin/python3 -m pytest ${CMAKE_CURRENT_SOURCE_DIR}/e2e/test_${T_NAME}.py
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/e2e)
  set_tests_properties(e2e.${T_NAME} PROPERTIES
    ENVIRONMENT "QVCD_BIN_DIR=${CMAKE_RUNTIME_OUTPUT_DIRECTORY};PYTHONDONTWRITEBYTECODE=1;LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/e2e/leaks.txt:print_suppressions=0"
    LABELS "e2e$<$<BOOL:${T_CONCURRENT}>:;concurrent>"
    TIMEOUT ${T_TIMEOUT})
endfunction()

# A library with the address sanitizer in it is loaded into Python and programs of C, which have neither that nor the
# library of C++ whose exceptions it watches.
function(qvcd_preload_sanitizer name)
  if(NOT QVCD_SANITIZE MATCHES "address")
    return()
  endif()
  foreach(library libasan.so libstdc++.so)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${library}
      OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE)
    list(APPEND preloaded ${file})
  endforeach()
  list(JOIN preloaded ":" preloaded)
  set_property(TEST e2e.${name} APPEND PROPERTY ENVIRONMENT
    "LD_PRELOAD=${preloaded}" "ASAN_OPTIONS=detect_leaks=0") # Python has leaks of its own
endfunction()

add_dependencies(concurrent_tests qvcd qvc apimeta)

qvcd_e2e_test(NAME access CONCURRENT)
qvcd_e2e_test(NAME answers)
qvcd_e2e_test(NAME change CONCURRENT)
qvcd_e2e_test(NAME changes_page)
qvcd_e2e_test(NAME client_library)
qvcd_preload_sanitizer(client_library)
qvcd_e2e_test(NAME commit CONCURRENT)
qvcd_e2e_test(NAME console TIMEOUT 300)
qvcd_e2e_test(NAME crash TIMEOUT 300)
qvcd_e2e_test(NAME docs)
qvcd_e2e_test(NAME crowd CONCURRENT TIMEOUT 300)
qvcd_e2e_test(NAME cut_off)
qvcd_e2e_test(NAME events CONCURRENT)
qvcd_e2e_test(NAME model)
qvcd_e2e_test(NAME framing CONCURRENT)
qvcd_e2e_test(NAME read)
qvcd_e2e_test(NAME save)
qvcd_e2e_test(NAME scripts)
qvcd_e2e_test(NAME sessions)
qvcd_e2e_test(NAME shell)
qvcd_e2e_test(NAME shipped)
qvcd_e2e_test(NAME startup)
qvcd_e2e_test(NAME templates)
qvcd_e2e_test(NAME terminal)
qvcd_e2e_test(NAME tls CONCURRENT)
qvcd_e2e_test(NAME transfer CONCURRENT)
qvcd_e2e_test(NAME listening CONCURRENT)
qvcd_e2e_test(NAME manual)
qvcd_e2e_test(NAME names)
qvcd_e2e_test(NAME network)
qvcd_e2e_test(NAME package TIMEOUT 300)
qvcd_e2e_test(NAME selfdesc)
qvcd_e2e_test(NAME snapshots TIMEOUT 300)
qvcd_e2e_test(NAME waiting CONCURRENT)
if(QVCD_WEB)
  qvcd_e2e_test(NAME web_api CONCURRENT)
  add_dependencies(concurrent_tests qvweb)
endif()

# Those that wait longest begin first.
foreach(name tls changes_page commit cut_off crowd waiting)
  set_tests_properties(e2e.${name} PROPERTIES COST 100)
endforeach()

# What the browser asks for is asked by other tests under the sanitizers, too; and it needs the gateway.
if(QVCD_SANITIZE OR NOT QVCD_WEB)
  set_tests_properties(e2e.console PROPERTIES DISABLED TRUE)
endif()

file(GLOB test_files CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}/e2e ${CMAKE_CURRENT_SOURCE_DIR}/e2e/test_*.py)
if(NOT QVCD_WEB)
  list(FILTER test_files EXCLUDE REGEX "^test_web_")
endif()
foreach(test_file IN LISTS test_files)
  string(REGEX REPLACE "^test_(.*)\\.py$" "e2e.\\1" test_name ${test_file})
  if(NOT TEST ${test_name})
    message(FATAL_ERROR "${test_file} is not run: ${test_name} is missing")
  endif()
endforeach()
