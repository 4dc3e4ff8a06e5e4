# One block a folder of src/.

qvcd_unit_test(NAME store_profiles SOURCES store_profile_files_test.cpp LIBRARIES qvcd_store)
qvcd_unit_test(NAME funcs_check SOURCES funcs_check_test.cpp LIBRARIES qvcd_funcs)
qvcd_unit_test(NAME funcs_introspect SOURCES funcs_introspect_test.cpp LIBRARIES qvcd_funcs)
qvcd_unit_test(NAME auth SOURCES auth_access_test.cpp auth_hash_test.cpp auth_session_test.cpp auth_user_test.cpp
  LIBRARIES qvcd_auth)
qvcd_unit_test(NAME commands_auth SOURCES auth_commands_test.cpp LIBRARIES qvcd_commands)
qvcd_unit_test(NAME client
  SOURCES client_answers_test.cpp client_change_test.cpp client_shell_test.cpp client_wire_test.cpp
  LIBRARIES qvcd_client_full)
qvcd_unit_test(NAME client_commands SOURCES client_commands_test.cpp LIBRARIES qvcd_client_full qvcd_commands)
qvcd_unit_test(NAME platform_device SOURCES platform_device_test.cpp LIBRARIES qvcd_platform)
qvcd_unit_test(NAME status
  SOURCES status_bonding_test.cpp status_codec_test.cpp status_links_test.cpp status_network_test.cpp
    status_system_test.cpp status_uplink_test.cpp
  LIBRARIES qvcd_status)
qvcd_unit_test(NAME store SOURCES store_metadata_test.cpp store_tree_test.cpp LIBRARIES qvcd_store)
qvcd_unit_test(NAME base SOURCES base_files_test.cpp base_lock_test.cpp base_replace_test.cpp base_shell_test.cpp LIBRARIES qvcd_base LABELS concurrent)
qvcd_unit_test(NAME platform
  SOURCES platform_line_server_test.cpp platform_lock_files_test.cpp platform_log_test.cpp platform_modules_test.cpp
    platform_notify_test.cpp platform_sockets_test.cpp platform_tls_test.cpp platform_watchdog_test.cpp
  LIBRARIES qvcd_platform LABELS concurrent)
add_library(module_of_another_release MODULE unit/module_of_another_release.cpp)
target_link_libraries(module_of_another_release PRIVATE qvcd_flags)
target_include_directories(module_of_another_release PRIVATE ${CMAKE_SOURCE_DIR}/src)
target_compile_definitions(module_of_another_release PRIVATE QVCD_RELEASE="0")
set_target_properties(module_of_another_release PROPERTIES
  PREFIX "" OUTPUT_NAME of_another_release LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib/qvcd)
add_dependencies(test_platform module_of_another_release)
qvcd_unit_test(NAME funcs SOURCES funcs_files_test.cpp LIBRARIES qvcd_model)
qvcd_unit_test(NAME commands_selfdesc
  SOURCES commands_export_test.cpp commands_help_test.cpp commands_menu_test.cpp
  LIBRARIES qvcd_commands)
qvcd_unit_test(NAME commands_snapshots
  SOURCES commands_preset_test.cpp commands_profile_test.cpp
  LIBRARIES qvcd_commands)
qvcd_unit_test(NAME change SOURCES change_history_test.cpp LIBRARIES qvcd_change PkgConfig::SQLITE LABELS concurrent)
qvcd_unit_test(NAME check SOURCES check_findings_test.cpp LIBRARIES qvcd_check)
