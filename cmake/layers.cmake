# The layers of the module's source, bottom first. A folder may include headers of its own
# layer and of the layers below it, never of one above; cmake/check_layers.cmake holds every
# build to that. platform/ is the bottom of all (its headers are included by bare name);
# sim/ is a program of its own that may use only the bus catalog of dbus/.
set(KORVEX_LAYERS platform base dbus registry commands module)
set(KORVEX_LAYER_USES_sim sim dbus)
# Folders of the tree that are no layer; they may include anything and are not checked.
set(KORVEX_UNLAYERED_FOLDERS tests bench)
# The files the check reads.
set(KORVEX_LAYER_FILE_PATTERNS *.h *.cpp *.def)

# The folders `folder` may include from: its own layer and every layer below it.
function(korvex_layer_uses folder out)
  if(DEFINED KORVEX_LAYER_USES_${folder})
    set(${out} ${KORVEX_LAYER_USES_${folder}} PARENT_SCOPE)
    return()
  endif()
  list(FIND KORVEX_LAYERS ${folder} index)
  if(index LESS 0)
    message(FATAL_ERROR "layers: ${folder} is not a layer")
  endif()
  list(SUBLIST KORVEX_LAYERS 0 ${index} below)
  set(${out} ${below} ${folder} PARENT_SCOPE)
endfunction()

# Every checked folder: the layers and the programs beside them.
set(KORVEX_CHECKED_FOLDERS ${KORVEX_LAYERS} sim)
