list(APPEND KORVEX_LOGIC_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/shell_line.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/timezone_mapping.cpp)
list(APPEND KORVEX_MODULE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/command_shapes.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/change_stamp.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/json_passthrough.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/app_flags.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/app_backup.cpp
  ${CMAKE_CURRENT_LIST_DIR}/app/status_snapshot.cpp)
list(APPEND KORVEX_MODULE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/system/update_flag.cpp)
