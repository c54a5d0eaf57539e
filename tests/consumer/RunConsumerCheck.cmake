# Installs the built project into a scratch prefix, then configures, builds and
# runs the consumer project against the installed package.
file(REMOVE_RECURSE ${LX_WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${LX_BUILD_DIR} --prefix ${LX_WORK_DIR}/prefix
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "install failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${LX_CONSUMER_SOURCE} -B ${LX_WORK_DIR}/build -G ${LX_GENERATOR}
  -DCMAKE_PREFIX_PATH=${LX_WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=Release RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer configure failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${LX_WORK_DIR}/build RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer build failed: ${rc}")
endif()
execute_process(COMMAND ${LX_WORK_DIR}/build/consumer RESULT_VARIABLE rc OUTPUT_VARIABLE out)
message(STATUS "consumer: ${out}")
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer run failed: ${rc}")
endif()
