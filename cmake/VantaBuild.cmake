# Settings and functions that every room's CMakeLists.txt uses.

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH VANTA_ROOT)

option(VANTA_M32 "Build for 32-bit x86 (programs that need further packages are left out)" OFF)
# Not for those who build this as a part of their own project.
option(VANTA_WERROR "Take warnings for errors" ${PROJECT_IS_TOP_LEVEL})
option(VANTA_SANITIZE "Build with the address and undefined-behaviour sanitizers" OFF)

if(NOT CMAKE_BUILD_TYPE)
   set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
include(GNUInstallDirs)
file(RELATIVE_PATH vantaLibFromBin "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
# An installed program finds its libraries beside itself, wherever the tree is put.
set(CMAKE_INSTALL_RPATH "$ORIGIN/${vantaLibFromBin};$ORIGIN")

add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion)
if(VANTA_WERROR)
   add_compile_options(-Werror)
endif()
# 64-bit sizes and seconds in the 32-bit library too; the 64-bit one has no others.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
if(VANTA_M32)
   # x87 registers would change a NaN's bits and compare unrounded doubles.
   add_compile_options(-m32 -msse2 -mfpmath=sse)
   add_link_options(-m32)
endif()
if(VANTA_SANITIZE)
   add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
   add_link_options(-fsanitize=address,undefined)
   # Instrumented code keeps GCC from seeing what is initialised (its manual says so of the sanitizers); the other builds warn.
   add_compile_options(-Wno-maybe-uninitialized)
   # Half the time of the release flags, and enough inlining left for the tests to end soon.
   set(CMAKE_CXX_FLAGS_RELEASE "-O1 -g1")
endif()

find_program(VANTA_CCACHE ccache)
if(VANTA_CCACHE)
   set(CMAKE_CXX_COMPILER_LAUNCHER ${VANTA_CCACHE})
endif()

# vanta_library(Kel SOURCES ... LINKS ... [DESCRIPTION text]): the shared library libKel with the target Kel::Kel. The headers of
# a library in platform/<dir> are included as <dir/Header.h>. The library, those headers, its CMake targets and its pkg-config
# file (kel.pc) are installed.
function(vanta_library name)
   cmake_parse_arguments(arg "" "DESCRIPTION" "SOURCES;LINKS" ${ARGN})
   add_library(${name} SHARED ${arg_SOURCES})
   add_library(${name}::${name} ALIAS ${name})
   set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
   target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${VANTA_ROOT}/platform>
                                             $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
   target_compile_features(${name} PUBLIC cxx_std_20)
   target_link_libraries(${name} PUBLIC ${arg_LINKS})
   # The type registry points into libraries: none is ever unloaded.
   target_link_options(${name} PRIVATE -Wl,--no-undefined -Wl,-z,nodelete)
   vanta_install_library(${name} "${arg_DESCRIPTION}" "${arg_LINKS}")
endfunction()

function(vanta_install_library name description links)
   install(TARGETS ${name} EXPORT ${name}Targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
   install(EXPORT ${name}Targets NAMESPACE ${name}:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Vanta)
   cmake_path(GET CMAKE_CURRENT_SOURCE_DIR PARENT_PATH parent)
   if(parent STREQUAL "${VANTA_ROOT}/platform")
      install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
              FILES_MATCHING PATTERN "*.h" PATTERN "*Test*.h" EXCLUDE PATTERN "test*" EXCLUDE)
   endif()

   string(TOLOWER ${name} lower)
   # Of what it links with, the libraries of this project are its requirements for pkg-config too.
   get_property(known GLOBAL PROPERTY VANTA_LIBRARIES)
   set(requires "")
   foreach(link ${links})
      string(REGEX REPLACE "^.*::" "" link "${link}")
      if(link IN_LIST known)
         string(TOLOWER ${link} required)
         list(APPEND requires ${required})
      endif()
   endforeach()
   list(JOIN requires ", " pcRequires)
   set(pcName ${name})
   set(pcDescription "${description}")
   if(NOT pcDescription)
      set(pcDescription "lib${name}, version ${PROJECT_VERSION}")
   endif()
   file(RELATIVE_PATH pcPrefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
   string(REGEX REPLACE "/$" "" pcPrefix "${pcPrefix}")
   configure_file(${VANTA_ROOT}/packaging/library.pc.in ${CMAKE_BINARY_DIR}/pkgconfig/${lower}.pc @ONLY)
   install(FILES ${CMAKE_BINARY_DIR}/pkgconfig/${lower}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
   set_property(GLOBAL APPEND PROPERTY VANTA_LIBRARIES ${name})
endfunction()

# vanta_program(vanta SOURCES ... LINKS ...): a program that people run; installed.
function(vanta_program name)
   cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
   add_executable(${name} ${arg_SOURCES})
   target_link_libraries(${name} PRIVATE ${arg_LINKS})
   install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()

# vanta_test(KelTest SOURCES ... LINKS ...): one GoogleTest program, run as one CTest case. The target "tests" builds all of
# them; a plain build leaves them out.
function(vanta_test name)
   if(NOT TARGET vanta_gtest_main)
      return()
   endif()
   cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
   if(NOT arg_SOURCES)
      return()
   endif()
   add_executable(${name} EXCLUDE_FROM_ALL ${arg_SOURCES})
   target_link_libraries(${name} PRIVATE ${arg_LINKS} vanta_gtest_main)
   add_dependencies(tests ${name})
   add_test(NAME ${name} COMMAND ${name})
endfunction()

# Builds GoogleTest from Debian's source package, so that it exists in either word size. Without that package the tests are
# left out.
function(vanta_use_googletest)
   set(root /usr/src/googletest)
   if(NOT EXISTS ${root}/googletest/src/gtest-all.cc)
      message(STATUS "Tests are left out: install the package googletest to have them, or run 'make check', which does")
      return()
   endif()
   add_custom_target(tests)
   add_library(vanta_gtest_main STATIC EXCLUDE_FROM_ALL ${root}/googletest/src/gtest-all.cc
               ${root}/googlemock/src/gmock-all.cc ${root}/googlemock/src/gmock_main.cc)
   target_include_directories(vanta_gtest_main SYSTEM PUBLIC ${root}/googletest/include ${root}/googlemock/include)
   target_include_directories(vanta_gtest_main SYSTEM PRIVATE ${root}/googletest ${root}/googlemock)
   target_compile_options(vanta_gtest_main PRIVATE -w)
   find_package(Threads REQUIRED)
   target_link_libraries(vanta_gtest_main PUBLIC Threads::Threads)
endfunction()

# Installs what makes find_package(Vanta) work, so that others can build agents and compile definitions of their own: every
# library's targets, kelc, the function kel_module and the definitions to import. Called once, after all rooms.
function(vanta_install_package)
   include(CMakePackageConfigHelpers)
   set(destination ${CMAKE_INSTALL_LIBDIR}/cmake/Vanta)
   set(definitions ${CMAKE_INSTALL_DATADIR}/kel)
   get_property(libraries GLOBAL PROPERTY VANTA_LIBRARIES)
   configure_package_config_file(${VANTA_ROOT}/packaging/VantaConfig.cmake.in ${CMAKE_BINARY_DIR}/VantaConfig.cmake
                                 INSTALL_DESTINATION ${destination})
   write_basic_package_version_file(${CMAKE_BINARY_DIR}/VantaConfigVersion.cmake COMPATIBILITY SameMajorVersion)
   install(FILES ${CMAKE_BINARY_DIR}/VantaConfig.cmake ${CMAKE_BINARY_DIR}/VantaConfigVersion.cmake
                 ${VANTA_ROOT}/cmake/KelModule.cmake DESTINATION ${destination})
   install(TARGETS kelc EXPORT KelcTargets RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
   install(EXPORT KelcTargets NAMESPACE Vanta:: DESTINATION ${destination})
   # Each library installs the definitions of its modules; these two are of types written by hand.
   install(FILES ${VANTA_ROOT}/platform/kel/Kel.kel DESTINATION ${definitions}/kel)
   install(FILES ${VANTA_ROOT}/platform/quor/Quor.kel DESTINATION ${definitions}/quor)
   install(DIRECTORY ${VANTA_ROOT}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
endfunction()
