# SPDX-License-Identifier: Apache-2.0
# The switches of the build. Each changes targets of this project, never global flags, so that the
# tree behaves inside another project: there, only the library is built.

# BUILD_TESTING and what is installed are a parent project's own business.
if(PROJECT_IS_TOP_LEVEL)
  option(BUILD_TESTING "Build the tests, examples and corpus replays" ON)
endif()
option(TARNUTIL_INSTALL "Install the library, and what is built beside it" ${PROJECT_IS_TOP_LEVEL})
option(TARNUTIL_BENCH "Build the benchmarks" OFF)
option(TARNUTIL_FUZZ "Build the fuzz targets with libFuzzer (needs clang)" OFF)
option(TARNUTIL_COVERAGE "Count the lines and branches that run" OFF)
option(TARNUTIL_PACKAGE "Prepare Debian packages" OFF)
option(TARNUTIL_HARDENING "Harden the library against memory errors" ON)
option(TARNUTIL_WERROR "Treat warnings as errors" OFF)
option(TARNUTIL_REQUIRE_CHECKERS "A program that a check needs and that is missing is an error" OFF)
set(TARNUTIL_SANITIZE "" CACHE STRING "Sanitizers of every target, as -fsanitize takes them")

if(BUILD_TESTING AND PROJECT_IS_TOP_LEVEL)
  set(TARNUTIL_TESTING ON)
else()
  set(TARNUTIL_TESTING OFF)
endif()
# The command needs libraries that the library does not, and its tests need the command.
option(TARNUTIL_TOOLS "Build the tarnutil command" ${TARNUTIL_TESTING})

# tarnutil_find_checker(<variable> <program>)
# Finds a program that some checks need. Without it they are left out, unless all are asked for.
macro(tarnutil_find_checker variable program)
  find_program(${variable} ${program})
  if(TARNUTIL_REQUIRE_CHECKERS AND NOT ${variable})
    message(FATAL_ERROR "${program} is missing: the checks that need it could not run")
  endif()
endmacro()

# What every target of this project is built with: our warnings, and the sanitizers or counters asked for.
function(tarnutil_build_options target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                           $<$<BOOL:${TARNUTIL_WERROR}>:-Werror>)
  if(TARNUTIL_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${TARNUTIL_SANITIZE} -fno-omit-frame-pointer
                                             -fno-sanitize-recover=undefined)
    # Instrumented, the standard library looks to g++ as if it used what it never set.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(${target} PRIVATE -fsanitize=${TARNUTIL_SANITIZE})
  endif()
  if(TARNUTIL_PACKAGE)
    target_compile_options(${target} PRIVATE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  endif()
  if(TARNUTIL_COVERAGE)
    target_compile_definitions(${target} PRIVATE TARNUTIL_COVERAGE)
  endif()
endfunction()

# FORTIFY needs the optimiser, so it joins in optimised configurations only; sanitizers bring checks
# of their own that it would hide.
function(tarnutil_hardening target)
  if(NOT TARNUTIL_HARDENING)
    return()
  endif()
  target_compile_options(${target} PRIVATE -fstack-protector-strong -fstack-clash-protection
                                           -fcf-protection=full)
  target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,shstk)
  if(NOT TARNUTIL_SANITIZE)
    target_compile_options(
      ${target} PRIVATE $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
  endif()
endfunction()

# Counters for the library alone. A program that is about to end without exit() has them written by
# __gcov_dump(), so in this build that name leaves the library too.
function(tarnutil_counters target)
  if(NOT TARNUTIL_COVERAGE)
    return()
  endif()
  target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
  target_link_options(${target} PRIVATE --coverage -Wl,--undefined=__gcov_dump
                      -Wl,--version-script,${PROJECT_SOURCE_DIR}/cmake/coverage.map)
endfunction()
