# Type definitions in a build.
#
#   kel_module(VlanId DEFINITION VlanId.kel [SOURCES VlanId.cpp ...] [LINKS Kel::Kel ...] [LIBRARY Vanta]
#              [HEADERS Counter.h ...] [IMPORT_DIRS DIR[=PREFIX] ...])
#
# compiles a definition file and, with it, the hand-written bodies of its types into the object library Vanta_VlanId. The header
# is included as <Vanta/VlanId.h>; the schema (JSON) and the reference page (Markdown) are written to <build>/schema/Vanta, where
# `vanta types` finds the one and README.md lists the others. HEADERS, written by hand beside the definition, are included and
# installed as the generated one is: <Vanta/Counter.h>. Modules that the definition imports must have been added before.
#
#   kel_library(Vanta MODULES VlanId Bridging ... [LINKS ...] [SOURCES ...] [DESCRIPTION text])
#
# makes the shared library libVanta (target Vanta, alias Vanta::Vanta) of modules in their LOAD ORDER, with the one source that
# registers them.
#
# Imports are looked for in KEL_IMPORT_DIRS and the module's own IMPORT_DIRS, each a list of DIR or DIR=PREFIX: the generated
# headers of what is imported from DIR are included as <PREFIX/Module.h>, without =PREFIX as the module's own.

include_guard(GLOBAL)

# In the source tree the compiler is built by the tree itself; installed, it comes with the package.
if(TARGET kelc)
   set(_kel_compiler_target kelc)
elseif(TARGET Vanta::kelc)
   set(_kel_compiler_target Vanta::kelc)
else()
   find_program(KELC_EXECUTABLE kelc REQUIRED)
endif()
if(NOT DEFINED KEL_IMPORT_DIRS)
   if(PACKAGE_PREFIX_DIR)
      set(KEL_IMPORT_DIRS ${PACKAGE_PREFIX_DIR}/share/kel=Vanta ${PACKAGE_PREFIX_DIR}/share/kel/intfbase=IntfBase ${CMAKE_SOURCE_DIR})
   else()
      cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH _kel_root)
      set(KEL_IMPORT_DIRS ${_kel_root}/platform=Vanta ${_kel_root}=Vanta ${_kel_root}/platform/intfbase=IntfBase)
   endif()
endif()
# Functions are called from any directory, so what they read is kept where all can see it.
set_property(GLOBAL PROPERTY KEL_IMPORT_DIRS ${KEL_IMPORT_DIRS})
set_property(GLOBAL PROPERTY KEL_COMPILER_TARGET ${_kel_compiler_target})

# How the compiler is called, and what a command must depend on to notice a new one.
function(_kel_compiler command depends)
   get_property(compiler GLOBAL PROPERTY KEL_COMPILER_TARGET)
   get_property(dirs GLOBAL PROPERTY KEL_IMPORT_DIRS)
   if(NOT compiler)
      set(compiler ${KELC_EXECUTABLE})
   endif()
   set(call ${compiler})
   foreach(dir IN LISTS dirs)
      list(APPEND call -I ${dir})
   endforeach()
   set(${command} ${call} PARENT_SCOPE)
   set(${depends} ${compiler} PARENT_SCOPE)
endfunction()

# Takes the arguments of `call` apart, into arg_<KEYWORD>; `needed` must be among them.
macro(_kel_arguments call needed oneValue multiValue)
   cmake_parse_arguments(arg "" "${oneValue}" "${multiValue}" ${ARGN})
   if(arg_UNPARSED_ARGUMENTS)
      list(JOIN arg_UNPARSED_ARGUMENTS " " unknown)
      string(REPLACE ";" ", " known "${oneValue};${multiValue}")
      message(FATAL_ERROR "${call}: unknown argument ${unknown}; it takes ${known}")
   endif()
   if(NOT arg_${needed})
      message(FATAL_ERROR "${call}: no ${needed} is given")
   endif()
endmacro()

function(kel_module name)
   _kel_arguments("kel_module(${name})" DEFINITION "DEFINITION;LIBRARY" "SOURCES;HEADERS;LINKS;IMPORT_DIRS" ${ARGN})
   if(NOT arg_LIBRARY)
      set(arg_LIBRARY Vanta)
   endif()
   get_filename_component(definition "${arg_DEFINITION}" ABSOLUTE)
   set(headers ${CMAKE_BINARY_DIR}/generated-includes)
   set(schema ${CMAKE_BINARY_DIR}/schema/${arg_LIBRARY})
   set(header ${headers}/${arg_LIBRARY}/${name}.h)
   set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}.kel.cpp)
   set(depfile ${CMAKE_CURRENT_BINARY_DIR}/${name}.kel.d)
   file(MAKE_DIRECTORY ${headers}/${arg_LIBRARY} ${schema})
   foreach(written IN LISTS arg_HEADERS)
      cmake_path(GET written FILENAME file)
      configure_file(${written} ${headers}/${arg_LIBRARY}/${file} COPYONLY)
   endforeach()

   _kel_compiler(compiler depends)
   foreach(dir IN LISTS arg_IMPORT_DIRS)
      list(APPEND compiler -I ${dir})
   endforeach()
   add_custom_command(
      OUTPUT ${header} ${source} ${schema}/${name}.json ${schema}/${name}.md
      COMMAND ${compiler} --include-prefix ${arg_LIBRARY} --header ${header} --source ${source} --depfile ${depfile}
              --json ${schema}/${name}.json --markdown ${schema}/${name}.md ${definition}
      DEPENDS ${definition} ${depends} DEPFILE ${depfile}
      COMMENT "Compiling the definitions of ${name}" VERBATIM)
   add_custom_target(${arg_LIBRARY}_${name}_definitions DEPENDS ${header} ${source})

   set(target ${arg_LIBRARY}_${name})
   add_library(${target} OBJECT ${source} ${arg_SOURCES})
   add_dependencies(${target} ${target}_definitions)
   target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${headers}>)
   target_link_libraries(${target} PUBLIC ${arg_LINKS})
   set_property(GLOBAL PROPERTY KEL_MODULE_${name} ${target})
   set_target_properties(${target} PROPERTIES KEL_DEFINITION ${definition} POSITION_INDEPENDENT_CODE ON)
   set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${definition})

   # The headers of imported modules must exist before anything here is compiled.
   file(STRINGS ${definition} imports REGEX "^[ \t]*import[ \t]*\"[^\"]*\"")
   foreach(import IN LISTS imports)
      string(REGEX REPLACE ".*\"([^\"]*/)?([^/\"]*)\\.kel\".*" "\\2" imported "${import}")
      get_property(imported GLOBAL PROPERTY KEL_MODULE_${imported}) # the module's target, whichever library it belongs to
      if(imported)
         add_dependencies(${target} ${imported}_definitions)
         set_property(TARGET ${target} APPEND PROPERTY KEL_IMPORTS ${imported})
         get_target_property(further ${imported} KEL_IMPORTS)
         if(further)
            set_property(TARGET ${target} APPEND PROPERTY KEL_IMPORTS ${further})
            foreach(other IN LISTS further)
               add_dependencies(${target} ${other}_definitions)
            endforeach()
         endif()
      endif()
   endforeach()
endfunction()

function(kel_library name)
   _kel_arguments("kel_library(${name})" MODULES "DESCRIPTION" "MODULES;LINKS;SOURCES" ${ARGN})
   set(registry ${CMAKE_CURRENT_BINARY_DIR}/${name}.registry.cpp)
   set(definitions)
   set(objects)
   foreach(module IN LISTS arg_MODULES)
      get_target_property(definition ${name}_${module} KEL_DEFINITION)
      get_target_property(links ${name}_${module} INTERFACE_LINK_LIBRARIES)
      if(links)
         list(APPEND arg_LINKS ${links})
      endif()
      list(APPEND definitions ${definition})
      list(APPEND objects $<TARGET_OBJECTS:${name}_${module}>)
   endforeach()
   list(REMOVE_DUPLICATES arg_LINKS)

   _kel_compiler(compiler depends)
   set(depfile ${CMAKE_CURRENT_BINARY_DIR}/${name}.registry.d)
   set(index ${CMAKE_BINARY_DIR}/schema/${name}/README.md)
   add_custom_command(
      OUTPUT ${registry} ${index}
      COMMAND ${compiler} --registry ${registry} --library ${name} --index ${index} --include-prefix ${name} --depfile ${depfile}
              ${definitions}
      DEPENDS ${definitions} ${depends} DEPFILE ${depfile}
      COMMENT "Writing the registry of lib${name}" VERBATIM)

   add_library(${name} SHARED ${registry} ${objects} ${arg_SOURCES})
   add_library(${name}::${name} ALIAS ${name})
   if(PROJECT_VERSION)
      set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
   endif()
   target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${CMAKE_BINARY_DIR}/generated-includes>
                                             $<INSTALL_INTERFACE:include>)
   target_link_libraries(${name} PUBLIC ${arg_LINKS})
   # The type registry refers to a library's types for the life of the process.
   target_link_options(${name} PRIVATE -Wl,--no-undefined -Wl,-z,nodelete)
   foreach(module IN LISTS arg_MODULES)
      add_dependencies(${name} ${name}_${module}_definitions)
   endforeach()
   if(COMMAND vanta_install_library)
      vanta_install_library(${name} "${arg_DESCRIPTION}" "${arg_LINKS}")
      install(DIRECTORY ${CMAKE_BINARY_DIR}/generated-includes/${name} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
              FILES_MATCHING PATTERN "*.h")
      foreach(definition IN LISTS definitions)
         cmake_path(RELATIVE_PATH definition BASE_DIRECTORY ${VANTA_ROOT} OUTPUT_VARIABLE relative)
         cmake_path(GET relative PARENT_PATH room)
         string(REGEX REPLACE "^platform/" "" room "${room}")
         install(FILES ${definition} DESTINATION ${CMAKE_INSTALL_DATADIR}/kel/${room})
      endforeach()
      install(DIRECTORY ${CMAKE_BINARY_DIR}/schema/${name} DESTINATION ${CMAKE_INSTALL_DOCDIR}/reference
              FILES_MATCHING PATTERN "*.md")
      install(DIRECTORY ${CMAKE_BINARY_DIR}/schema/${name} DESTINATION ${CMAKE_INSTALL_DATADIR}/vanta/schema
              FILES_MATCHING PATTERN "*.json")
   endif()
endfunction()
