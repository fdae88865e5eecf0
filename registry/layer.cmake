# The command table, its execution and the process-wide record. The handlers it runs are
# put into the table from above (module/command_catalog.cpp), so registry/ links nothing of
# commands/.
korvex_layer_library(korvex_registry
  ${CMAKE_CURRENT_LIST_DIR}/command_hash.cpp
  ${CMAKE_CURRENT_LIST_DIR}/module_config.cpp
  ${CMAKE_CURRENT_LIST_DIR}/deployment_settings.cpp
  ${CMAKE_CURRENT_LIST_DIR}/command_table.cpp)
target_link_libraries(korvex_registry PUBLIC korvex_base)
