# The command handlers and what they share.
korvex_layer_library(korvex_commands
  ${CMAKE_CURRENT_LIST_DIR}/shell_line.cpp
  ${CMAKE_CURRENT_LIST_DIR}/oom_row.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/timezone_mapping.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/text_utils.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/value_checks.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/site_survey.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/mac_address.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/rf433_frame.cpp
  ${CMAKE_CURRENT_LIST_DIR}/command_shapes.cpp
  ${CMAKE_CURRENT_LIST_DIR}/diagnostics_commands.cpp
  ${CMAKE_CURRENT_LIST_DIR}/test_command.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/change_stamp.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/json_passthrough.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/app_flags.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/app_backup.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/status_snapshot.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/update_flag.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/wifi_settings.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/wan_settings.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/pppoe_settings.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/time_settings.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/firmware_commands.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/firmware_update.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/mac_commands.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/identity_commands.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/p2p_services.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/partner_services.cpp
  ${CMAKE_CURRENT_LIST_DIR}/system/local_services.cpp)
# command_shapes.h names bus calls (dbus/dbus_types.h); the handler declarations and the
# process-wide record of registry/ are used inside only.
target_link_libraries(korvex_commands PUBLIC korvex_dbus PRIVATE korvex_registry)
