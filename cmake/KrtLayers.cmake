# The picture of the folders: who links whom, as the build knows it.
#
# krt_library() notes its folder and what it declares; krt_write_layers() writes
# them as a graph, build/<preset>/layers.dot, of which scripts/pictures draws
# docs/pictures/layers.svg.

function(krt_note_layer folder)
  set_property(GLOBAL APPEND PROPERTY KRT_LAYERS "  \"${folder}\"")
  foreach(library IN LISTS ARGN)
    string(REGEX REPLACE "^krt_" "" below ${library})
    # A folder's name has no "_" of its own.
    string(REPLACE _ / below ${below})
    set_property(GLOBAL APPEND PROPERTY KRT_LAYERS
                                        "  \"${folder}\" -> \"${below}\"")
  endforeach()
endfunction()

function(krt_write_layers)
  get_property(lines GLOBAL PROPERTY KRT_LAYERS)
  list(JOIN lines ";\n" graph)
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/layers.dot
       CONTENT "digraph layers {\n${graph};\n}\n" @ONLY)
endfunction()
