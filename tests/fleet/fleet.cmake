# Real daemons at a real broker, one ctest entry a file.
foreach(name fleet member hostile)
  add_test(NAME fleet.${name}
    COMMAND /usr/bin/python3 -m pytest ${CMAKE_CURRENT_SOURCE_DIR}/fleet/test_${name}.py
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/fleet)
  set_tests_properties(fleet.${name} PROPERTIES
    ENVIRONMENT "QVCD_BIN_DIR=${CMAKE_RUNTIME_OUTPUT_DIRECTORY};PYTHONDONTWRITEBYTECODE=1"
    LABELS "e2e$<$<NOT:$<STREQUAL:${name},fleet>>:;concurrent>"
    TIMEOUT 300)
endforeach()

# Many that are simulated: some here, for what it finds; 5,000 with ./test.sh bench, for the time that it takes.
add_executable(fleet_simulated fleet/simulated.cpp)
target_link_libraries(fleet_simulated PRIVATE qvcd_flags PkgConfig::MOSQUITTO)
add_test(NAME fleet.scale COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/fleet/scale.py 600)
set_tests_properties(fleet.scale PROPERTIES
  ENVIRONMENT "QVCD_BIN_DIR=${CMAKE_RUNTIME_OUTPUT_DIRECTORY};PYTHONDONTWRITEBYTECODE=1" LABELS e2e)
