# Kernel pipelines compiled ahead of time with Halide.
#
#   qorimg_halide_family(<family> SOURCE <generators.cpp> PIPELINES <name>... [TARGETS_EXTRA plain])
#
# builds one generator executable per family source file and, for each
# pipeline name, a static library holding one object per processor target plus
# the wrapper that picks the best target at run time. The generator registered
# under <name> in the source produces the C function <name>. Every library is
# linked into qorimg_objects, together with the one Halide runtime that all
# pipelines share. A family may be declared by several calls (same SOURCE), for
# instance to give some members the extra plain x86-64 target.

find_package(Threads REQUIRED)

# Best first: the wrapper tries them in this order.
set(QORIMG_HALIDE_TARGETS
  x86-64-linux-sse41-avx-f16c-fma-avx2
  x86-64-linux-sse41-avx
  x86-64-linux-sse41)
# Last resort for the few pipelines that also run without SSE4.1.
set(QORIMG_HALIDE_PLAIN_TARGET x86-64-linux)
set(QORIMG_HALIDE_RUNTIME qorimg_halide_runtime)

# The shared runtime, made once by the first generator declared. It is built
# for the common denominator of every target any pipeline may use.
function(_qorimg_halide_runtime generator)
  if(TARGET ${QORIMG_HALIDE_RUNTIME})
    return()
  endif()
  set(targets ${QORIMG_HALIDE_TARGETS} ${QORIMG_HALIDE_PLAIN_TARGET})
  list(JOIN targets "," joined)
  set(object "${CMAKE_CURRENT_BINARY_DIR}/${QORIMG_HALIDE_RUNTIME}.o")
  add_custom_command(OUTPUT "${object}"
    COMMAND ${generator} -r ${QORIMG_HALIDE_RUNTIME} -e object -o "${CMAKE_CURRENT_BINARY_DIR}" "target=${joined}"
    DEPENDS ${generator}
    COMMENT "Generating the Halide runtime"
    VERBATIM)
  add_library(${QORIMG_HALIDE_RUNTIME} STATIC "${object}")
  set_target_properties(${QORIMG_HALIDE_RUNTIME} PROPERTIES LINKER_LANGUAGE CXX)
  target_link_libraries(${QORIMG_HALIDE_RUNTIME} INTERFACE Halide::Runtime Threads::Threads ${CMAKE_DL_LIBS})
  target_link_libraries(qorimg_objects PUBLIC ${QORIMG_HALIDE_RUNTIME})
endfunction()

function(qorimg_halide_family family)
  cmake_parse_arguments(ARG "" "SOURCE" "PIPELINES;TARGETS_EXTRA" ${ARGN})
  if(NOT ARG_SOURCE OR NOT ARG_PIPELINES OR ARG_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "qorimg_halide_family(${family}): needs SOURCE and PIPELINES, got ${ARGN}")
  endif()

  set(generator qorimg_${family}_generator)
  if(NOT TARGET ${generator})
    add_halide_generator(${generator} SOURCES ${ARG_SOURCE})
    # The generator only runs at build time: compile it fast, not well, and
    # leave it out of sanitizer builds (the pipelines it emits are not
    # instrumented either way).
    target_compile_options(${generator} PRIVATE -O0 -fno-sanitize=all ${QORIMG_WARNINGS})
    target_link_options(${generator} PRIVATE -fno-sanitize=all)
    target_include_directories(${generator} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  endif()
  _qorimg_halide_runtime(${generator})

  set(targets ${QORIMG_HALIDE_TARGETS})
  foreach(extra IN LISTS ARG_TARGETS_EXTRA)
    if(extra STREQUAL "plain")
      list(APPEND targets ${QORIMG_HALIDE_PLAIN_TARGET})
    else()
      message(FATAL_ERROR "qorimg_halide_family(${family}): unknown TARGETS_EXTRA ${extra}")
    endif()
  endforeach()

  foreach(pipeline IN LISTS ARG_PIPELINES)
    add_halide_library(${pipeline} FROM ${generator} GENERATOR ${pipeline}
      TARGETS ${targets}
      USE_RUNTIME ${QORIMG_HALIDE_RUNTIME})
    target_link_libraries(qorimg_objects PUBLIC ${pipeline})
  endforeach()
endfunction()
