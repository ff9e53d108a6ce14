# How every target of the house is made: settings that all translation units
# share, and one function each for a platform library and for a test program.

find_package(Boost 1.81 REQUIRED COMPONENTS thread log filesystem)
find_package(TBB REQUIRED)
find_package(Threads REQUIRED)
find_package(simdjson REQUIRED)

find_program(YVM_CCACHE ccache)
if(YVM_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${YVM_CCACHE}")
endif()
find_program(YVM_MOLD mold)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# One layout for the build folder and for an installation: programs and shared
# objects in bin/, plug-ins below bin/win64/.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# Every unit must see the same Boost.Thread: version 2 has no `then`, and a
# unit that differs breaks the one-definition rule.
add_library(yvm_settings INTERFACE)
target_compile_features(yvm_settings INTERFACE cxx_std_20)
target_compile_definitions(
  yvm_settings
  INTERFACE BOOST_THREAD_VERSION=4
            BOOST_THREAD_THROW_IF_PRECONDITION_NOT_SATISFIED
            BOOST_ALL_DYN_LINK
            BOOST_ALL_NO_LIB)
target_link_libraries(yvm_settings INTERFACE Threads::Threads)
if(YVM_MOLD)
  target_link_options(yvm_settings INTERFACE -fuse-ld=mold)
endif()
if(YVM_SANITIZE)
  target_compile_options(
    yvm_settings INTERFACE -fsanitize=${YVM_SANITIZE} -fno-sanitize-recover=all
                           -fno-omit-frame-pointer)
  target_link_options(yvm_settings INTERFACE -fsanitize=${YVM_SANITIZE})
endif()

function(yvm_warnings target)
  target_compile_options(
    ${target}
    PRIVATE -Wall
            -Wextra
            -Wpedantic
            -Werror
            -Wshadow
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wcast-qual
            -Wformat=2
            -Wimplicit-fallthrough
            -Wundef)
endfunction()

# yvm_platform_library(<target> SOURCES ... [LINK ...])
#
# A shared object, so that a singleton that lives in one .cpp exists once in the
# process whoever links it. Headers are included from platform/, for example
# "foundation/json/Value.hpp".
function(yvm_platform_library target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK;PRIVATE_LINK")
  add_library(${target} SHARED ${arg_SOURCES})
  target_include_directories(${target} SYSTEM PUBLIC ${Boost_INCLUDE_DIRS})
  target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}/platform")
  target_link_libraries(
    ${target}
    PUBLIC yvm_settings ${arg_LINK}
    PRIVATE ${arg_PRIVATE_LINK})
  yvm_warnings(${target})
endfunction()

# yvm_test(<target> SOURCES ... LINK ... [LABELS ...])
#
# One GoogleTest program for the tests of one folder. The timeout only ends what hangs: it is many times what
# the program takes under a sanitizer on a busy machine.
function(yvm_test target)
  if(NOT YVM_DEVELOPER)
    return()
  endif()
  find_package(GTest REQUIRED)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK;LABELS")
  add_executable(${target} ${arg_SOURCES})
  if(YVM_SANITIZE STREQUAL "thread")
    target_sources(${target} PRIVATE "${PROJECT_SOURCE_DIR}/cmake/tsan_suppressions.cpp")
  endif()
  target_link_libraries(${target} PRIVATE yvm_settings ${arg_LINK} GTest::gmock GTest::gtest_main)
  yvm_warnings(${target})
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/test")
  add_test(NAME ${target} COMMAND ${target})
  set_tests_properties(${target} PROPERTIES TIMEOUT 900 LABELS "${arg_LABELS}")
endfunction()
