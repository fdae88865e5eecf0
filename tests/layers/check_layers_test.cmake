# The layer check passes on the real tree, and on small trees of its own fails for each kind
# of upward include, naming file, line and include, while the downward ones stay unnamed.
#   cmake -DKORVEX_SOURCE_DIR=<tree> -DKORVEX_WORK_DIR=<scratch directory> -P check_layers_test.cmake
cmake_minimum_required(VERSION 3.18)
set(check ${KORVEX_SOURCE_DIR}/cmake/check_layers.cmake)
set(failures 0)

function(run_check tree result_var output_var)
  execute_process(COMMAND ${CMAKE_COMMAND} -DKORVEX_TREE=${tree} -P ${check}
                  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  set(${result_var} ${result} PARENT_SCOPE)
  set(${output_var} "${output}" PARENT_SCOPE)
endfunction()

macro(fail what)
  message(SEND_ERROR "${what}")
  math(EXPR failures "${failures} + 1")
endmacro()

# A tree of files, each given as "path|line 1|line 2...".
function(write_tree tree)
  file(REMOVE_RECURSE ${tree})
  foreach(entry IN LISTS ARGN)
    string(REPLACE "|" ";" parts "${entry}")
    list(POP_FRONT parts path)
    list(JOIN parts "\n" text)
    file(WRITE ${tree}/${path} "${text}\n")
  endforeach()
endfunction()

# Every layer includes its own and every lower layer; no violation.
set(downward
  "base/log.h|#pragma once"
  "dbus/connection.cpp|#include \"base/log.h\"|#include \"dbus/connection.h\""
  "registry/command_table.cpp|#include \"base/log.h\""
  "commands/system/firmware_update.cpp|#include \"registry/module_config.h\"|#include \"dbus/signals.h\""
  "module/request_handler.cpp|#include \"commands/system/firmware_update.h\"|#include <jansson.h>|#include \"korvex_utils.h\""
  "sim/main.cpp|#include \"dbus/peer_catalog.h\"|#include \"sim/md5.h\"")

run_check(${KORVEX_SOURCE_DIR} result output)
if(NOT result EQUAL 0)
  fail("the real tree fails the layer check:\n${output}")
endif()

write_tree(${KORVEX_WORK_DIR}/down ${downward})
run_check(${KORVEX_WORK_DIR}/down result output)
if(NOT result EQUAL 0)
  fail("a tree of downward includes fails the layer check:\n${output}")
endif()

# Each case: a file with one upward include after one of its own folder, and the text expected.
set(cases
  "dbus/exchange.cpp|dbus/exchange.cpp:2: #include \"commands/command_shapes.h\"|commands/command_shapes.h"
  "commands/diagnostics_commands.cpp|commands/diagnostics_commands.cpp:2: #include \"module/process_scan.h\"|module/process_scan.h"
  "registry/handlers.h|registry/handlers.h:2: #include \"commands/system/firmware_update.h\"|commands/system/firmware_update.h"
  "base/guard.h|base/guard.h:2: #include \"dbus/connection.h\"|dbus/connection.h"
  "sim/gateway_simulator.cpp|sim/gateway_simulator.cpp:2: #include \"registry/catalog.def\"|registry/catalog.def"
  "commands/app/app_flags.cpp|commands/app/app_flags.cpp:2: #include \"../../module/request_body.h\"|../../module/request_body.h")
foreach(case IN LISTS cases)
  string(REPLACE "|" ";" parts "${case}")
  list(GET parts 0 file)
  list(GET parts 1 expected)
  list(GET parts 2 header)
  string(REGEX MATCH "^[a-z]+" folder "${file}")
  write_tree(${KORVEX_WORK_DIR}/up ${downward} "${file}|#include \"${folder}/own.h\"|#include \"${header}\"")
  run_check(${KORVEX_WORK_DIR}/up result output)
  string(FIND "${output}" "${expected}" found)
  string(REGEX MATCHALL "[a-z_/.]+:[0-9]+: #include" named "${output}")
  list(LENGTH named named_count)
  if(result EQUAL 0)
    fail("${file} including ${header} passes the layer check")
  elseif(found LESS 0)
    fail("the layer check does not name '${expected}':\n${output}")
  elseif(NOT named_count EQUAL 1)
    fail("the layer check names ${named_count} includes for one bad one:\n${output}")
  endif()
endforeach()

if(failures GREATER 0)
  message(FATAL_ERROR "${failures} layer check cases failed")
endif()
list(LENGTH cases case_count)
message(STATUS "layer check: the tree and downward includes pass, ${case_count} kinds of upward include fail")
