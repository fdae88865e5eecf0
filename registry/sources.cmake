list(APPEND KORVEX_LOGIC_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/command_hash.cpp
  ${CMAKE_CURRENT_LIST_DIR}/module_config.cpp)
list(APPEND KORVEX_MODULE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/command_table.cpp
  ${CMAKE_CURRENT_LIST_DIR}/command_catalog.cpp)
