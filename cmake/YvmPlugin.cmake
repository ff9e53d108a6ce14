# How a plug-in is made: a module that exports only what the framework looks up,
# and carries its manifest in itself.

set(YVM_PLUGIN_CMAKE_DIR "${CMAKE_CURRENT_LIST_DIR}")

# yvm_plugin(<target> OBJECTS <object library> MANIFEST <json file>
#            SYMBOLIC_NAME <name> OUTPUT_DIRECTORY <folder below the build folder>
#            [EXPORTS <C++ name pattern>...])
#
# Makes <folder>/<target>.so of the object library, which unit tests may link
# as well. The manifest becomes <name>/manifest.json in a ZIP archive that is the
# section US_RESOURCES of the .so. The section is part of the loaded image
# because `strip` may drop others.
#
# Exported are the functions by which the framework makes and deletes components
# and hands over the bundle context, and what EXPORTS names, such as
# "a::b::forTests(*)"; the template code of libraries stays inside.
function(yvm_plugin target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "OBJECTS;MANIFEST;SYMBOLIC_NAME;OUTPUT_DIRECTORY" "EXPORTS")
  foreach(required OBJECTS MANIFEST SYMBOLIC_NAME OUTPUT_DIRECTORY)
    if(NOT arg_${required})
      message(FATAL_ERROR "yvm_plugin(${target}): ${required} is missing")
    endif()
  endforeach()
  cmake_path(ABSOLUTE_PATH arg_MANIFEST NORMALIZE)
  find_program(YVM_PYTHON3 python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)

  set(archive "${CMAKE_CURRENT_BINARY_DIR}/${target}.manifest.zip")
  add_custom_command(
    OUTPUT "${archive}"
    COMMAND "${YVM_PYTHON3}" "${YVM_PLUGIN_CMAKE_DIR}/pack_bundle_manifest.py" "${arg_MANIFEST}"
            ${arg_SYMBOLIC_NAME} "${archive}"
    DEPENDS "${arg_MANIFEST}" "${YVM_PLUGIN_CMAKE_DIR}/pack_bundle_manifest.py"
    VERBATIM)
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}.manifest.cpp")
  file(
    CONFIGURE
    OUTPUT "${resource}"
    CONTENT
      "__asm__(\".pushsection US_RESOURCES,\\\"a\\\",@progbits\\n\"\n        \".incbin \\\"@archive@\\\"\\n\"\n        \".popsection\\n\");\n"
    @ONLY)
  set_source_files_properties("${resource}" PROPERTIES OBJECT_DEPENDS "${archive}")

  set(exports "")
  foreach(pattern ${arg_EXPORTS})
    string(APPEND exports "    ${pattern};\n")
  endforeach()
  if(exports)
    set(exports "  extern \"C++\" {\n${exports}  };\n")
  endif()
  set(versions "${CMAKE_CURRENT_BINARY_DIR}/${target}.exports")
  file(
    CONFIGURE
    OUTPUT "${versions}"
    CONTENT
      "{\nglobal:\n  NewInstance_*;\n  DeleteInstance_*;\n  _us_set_bundle_context_instance_@arg_SYMBOLIC_NAME@;\n@exports@local:\n  *;\n};\n"
    @ONLY)

  set_target_properties(${arg_OBJECTS} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  add_library(${target} MODULE "${resource}")
  target_link_libraries(${target} PRIVATE ${arg_OBJECTS})
  target_link_options(${target} PRIVATE "LINKER:--version-script=${versions}")
  if(NOT YVM_SANITIZE)
    # With a sanitizer, its own functions come from the program.
    target_link_options(${target} PRIVATE LINKER:--no-undefined)
  endif()
  set_target_properties(
    ${target}
    PROPERTIES PREFIX ""
               SUFFIX ".so"
               LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/${arg_OUTPUT_DIRECTORY}"
               LINK_DEPENDS "${versions}")
endfunction()
