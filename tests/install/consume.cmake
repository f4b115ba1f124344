# Installs the build tree into a scratch prefix, then builds and runs a small
# consumer against it twice: through find_package(aklac CONFIG) and through
# pkg-config; and runs the installed programs.  Nothing runs with
# LD_LIBRARY_PATH: the installed files find each other by their run paths.
# Arguments: -DBUILD_DIR -DSOURCE_DIR -DWORK_DIR -DC_COMPILER -DC_FLAGS
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
    "-DCMAKE_EXE_LINKER_FLAGS=${C_FLAGS} -Wl,--as-needed" -DCMAKE_BUILD_RPATH=${prefix}/lib)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-consumer)
run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${WORK_DIR}/cmake-consumer/consumer)

# the installed programs start from the prefix
foreach(program akl-info akl-mp3dec akl-aacdec)
  if(EXISTS ${prefix}/bin/${program})
    run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${prefix}/bin/${program} --help)
  endif()
endforeach()

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
run(${C_COMPILER} ${cflags} -Wl,--as-needed ${SOURCE_DIR}/tests/install/consumer/main.c ${flags}
    -Wl,-rpath,${pcdir}/.. -o ${WORK_DIR}/pc-consumer)
run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${WORK_DIR}/pc-consumer)
execute_process(COMMAND ${PKG_CONFIG} --static --libs aklac OUTPUT_VARIABLE static_flags
  OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT static_flags MATCHES "-lstdc\\+\\+" OR NOT static_flags MATCHES "-lm")
  message(FATAL_ERROR "pkg-config --static aklac lacks the C++ runtime: ${static_flags}")
endif()
