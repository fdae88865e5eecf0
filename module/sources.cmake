list(APPEND KORVEX_LOGIC_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/upload_splitter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/body_buffer.cpp)
list(APPEND KORVEX_MODULE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/mod_korvex.cpp
  ${CMAKE_CURRENT_LIST_DIR}/command_catalog.cpp
  ${CMAKE_CURRENT_LIST_DIR}/apache_log_sink.cpp
  ${CMAKE_CURRENT_LIST_DIR}/request_handler.cpp
  ${CMAKE_CURRENT_LIST_DIR}/request_body.cpp
  ${CMAKE_CURRENT_LIST_DIR}/fault_hooks.cpp
  ${CMAKE_CURRENT_LIST_DIR}/request_arguments.cpp)
