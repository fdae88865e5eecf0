# Foundations every other folder builds on: the Apache/APR shim, logging, the exception
# guard, the process-wide lock, the intrusive ring and the readers of /proc.
list(APPEND KORVEX_LOGIC_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/process_lock.cpp
  ${CMAKE_CURRENT_LIST_DIR}/process_scan.cpp)
