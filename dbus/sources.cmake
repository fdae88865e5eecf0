# The bus client needs no running server (only APR and libdbus), so bus-level tests link it.
list(APPEND KORVEX_LOGIC_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/connection.cpp
  ${CMAKE_CURRENT_LIST_DIR}/exchange.cpp
  ${CMAKE_CURRENT_LIST_DIR}/no_reply_log.cpp
  ${CMAKE_CURRENT_LIST_DIR}/peer_catalog.cpp
  ${CMAKE_CURRENT_LIST_DIR}/primitives.cpp
  ${CMAKE_CURRENT_LIST_DIR}/signals.cpp
  ${CMAKE_CURRENT_LIST_DIR}/list_queries.cpp
  ${CMAKE_CURRENT_LIST_DIR}/silence_state.cpp
  ${CMAKE_CURRENT_LIST_DIR}/silent_peers.cpp)
