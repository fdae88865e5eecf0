# The bus client. It needs no running server (only APR and libdbus), so bus-level tests link it.
korvex_layer_library(korvex_dbus
  ${CMAKE_CURRENT_LIST_DIR}/connection.cpp
  ${CMAKE_CURRENT_LIST_DIR}/exchange.cpp
  ${CMAKE_CURRENT_LIST_DIR}/name_owner.cpp
  ${CMAKE_CURRENT_LIST_DIR}/no_reply_log.cpp
  ${CMAKE_CURRENT_LIST_DIR}/peer_catalog.cpp
  ${CMAKE_CURRENT_LIST_DIR}/primitives.cpp
  ${CMAKE_CURRENT_LIST_DIR}/signals.cpp
  ${CMAKE_CURRENT_LIST_DIR}/list_queries.cpp
  ${CMAKE_CURRENT_LIST_DIR}/silence_state.cpp
  ${CMAKE_CURRENT_LIST_DIR}/silent_peers.cpp)
target_link_libraries(korvex_dbus PUBLIC korvex_base PkgConfig::DBUS)
