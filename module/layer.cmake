# The Apache entry below the module record: the content handler, request bodies and upload,
# the log sink, the table filled from the catalog. The module record itself
# (mod_korvex.cpp) is the one source of the mod_korvex target.
korvex_layer_library(korvex_module
  ${CMAKE_CURRENT_LIST_DIR}/upload_splitter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/part_header.cpp
  ${CMAKE_CURRENT_LIST_DIR}/delimiter_scanner.cpp
  ${CMAKE_CURRENT_LIST_DIR}/upload_pace.cpp
  ${CMAKE_CURRENT_LIST_DIR}/body_buffer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/command_catalog.cpp
  ${CMAKE_CURRENT_LIST_DIR}/apache_log_sink.cpp
  ${CMAKE_CURRENT_LIST_DIR}/request_handler.cpp
  ${CMAKE_CURRENT_LIST_DIR}/request_body.cpp
  ${CMAKE_CURRENT_LIST_DIR}/cross_site_policy.cpp
  ${CMAKE_CURRENT_LIST_DIR}/cross_site_config.cpp
  ${CMAKE_CURRENT_LIST_DIR}/server_directives.cpp
  ${CMAKE_CURRENT_LIST_DIR}/secret_query.cpp
  ${CMAKE_CURRENT_LIST_DIR}/access_log_masking.cpp
  ${CMAKE_CURRENT_LIST_DIR}/request_arguments.cpp)
target_link_libraries(korvex_module PUBLIC korvex_base PRIVATE korvex_commands korvex_registry korvex_dbus)

# The test-only faults (fault_hooks.h), twice: a module links exactly one of these after
# korvex_module. The one without hooks answers no fault header and holds none of its names.
korvex_layer_library(korvex_fault_hooks ${CMAKE_CURRENT_LIST_DIR}/fault_hooks.cpp)
target_compile_definitions(korvex_fault_hooks PRIVATE KORVEX_FAULT_HOOKS)
target_link_libraries(korvex_fault_hooks PUBLIC korvex_base PRIVATE korvex_dbus)
korvex_layer_library(korvex_no_fault_hooks ${CMAKE_CURRENT_LIST_DIR}/fault_hooks.cpp)
target_link_libraries(korvex_no_fault_hooks PUBLIC korvex_base)
