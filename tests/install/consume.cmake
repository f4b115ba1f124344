# Installs the build tree into a scratch prefix, then builds and runs a small
# consumer against it twice: through find_package(aklac CONFIG) and through
# pkg-config.  Arguments: -DBUILD_DIR -DSOURCE_DIR -DWORK_DIR -DC_COMPILER -DC_FLAGS
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "command failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# find_package
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/install/consumer -B ${WORK_DIR}/cmake-consumer
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${C_COMPILER} "-DCMAKE_C_FLAGS=${C_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${C_FLAGS}" -DCMAKE_BUILD_RPATH=${prefix}/lib)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-consumer)
run(${WORK_DIR}/cmake-consumer/consumer)

# pkg-config
find_program(PKG_CONFIG pkg-config pkgconf)
if(NOT PKG_CONFIG)
  message(STATUS "pkg-config not installed: skipping the pkg-config consumer")
  return()
endif()
file(GLOB_RECURSE pcfile ${prefix}/*/aklac.pc)
get_filename_component(pcdir "${pcfile}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pcdir})
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs aklac OUTPUT_VARIABLE flags RESULT_VARIABLE rc
  OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know aklac")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
separate_arguments(cflags UNIX_COMMAND "${C_FLAGS}")
run(${C_COMPILER} ${cflags} ${SOURCE_DIR}/tests/install/consumer/main.c ${flags}
    -Wl,-rpath,${pcdir}/.. -o ${WORK_DIR}/pc-consumer)
run(${WORK_DIR}/pc-consumer)
