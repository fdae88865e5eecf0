# The bus client needs no running server (only APR and libdbus), so bus-level tests link it.
list(APPEND KORVEX_LOGIC_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/connection.cpp
  ${CMAKE_CURRENT_LIST_DIR}/call.cpp
  ${CMAKE_CURRENT_LIST_DIR}/primitives.cpp
  ${CMAKE_CURRENT_LIST_DIR}/signals.cpp)
list(APPEND KORVEX_MODULE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/call_batch.cpp
  ${CMAKE_CURRENT_LIST_DIR}/list_queries.cpp)
list(APPEND KORVEX_LOGIC_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/oom_row.cpp)
list(APPEND KORVEX_LOGIC_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/silence_state.cpp
  ${CMAKE_CURRENT_LIST_DIR}/silent_peers.cpp)
