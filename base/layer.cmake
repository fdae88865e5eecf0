# Foundations every other folder builds on: the Apache/APR shim, logging, the exception
# guard, the process-wide lock, the intrusive ring and the readers of /proc.
korvex_layer_library(korvex_base
  ${CMAKE_CURRENT_LIST_DIR}/process_lock.cpp
  ${CMAKE_CURRENT_LIST_DIR}/process_scan.cpp
  ${CMAKE_CURRENT_LIST_DIR}/record_thinner.cpp)
# Every header is named from the tree's root; base's headers bring in Apache and APR
# (apache_shim.h), jansson (process_scan.h) and the platform's log interface (log.h).
target_include_directories(korvex_base PUBLIC ${CMAKE_SOURCE_DIR} ${APACHE_INCLUDE_DIR})
target_link_libraries(korvex_base PUBLIC PkgConfig::APR PkgConfig::APRUTIL PkgConfig::JANSSON korvex_platform)
