# Real daemons at a real broker, one ctest entry a file.
foreach(name fleet member)
  add_test(NAME fleet.${name}
    COMMAND /usr/bin/python3 -m pytest ${CMAKE_CURRENT_SOURCE_DIR}/fleet/test_${name}.py
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/fleet)
  set_tests_properties(fleet.${name} PROPERTIES
    ENVIRONMENT "QVCD_BIN_DIR=${CMAKE_RUNTIME_OUTPUT_DIRECTORY};PYTHONDONTWRITEBYTECODE=1"
    LABELS "e2e$<$<STREQUAL:${name},member>:;concurrent>"
    TIMEOUT 300)
endforeach()
