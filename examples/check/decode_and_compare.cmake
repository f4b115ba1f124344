# Runs an example decoder on a stream and compares its output with the
# reference decode (see examples/CMakeLists.txt).
execute_process(COMMAND ${DECODER} ${STREAM} ${OUT} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${DECODER} failed on ${STREAM} (${rc})")
endif()
execute_process(COMMAND ${COMPARE} ${OUT} ${REF} 0.5 2 ${SKIP} ${MAP} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${OUT} is not within the bounds of ${REF}")
endif()
file(REMOVE ${OUT})
