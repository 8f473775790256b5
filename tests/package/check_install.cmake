# Installs the built project into a scratch prefix, then configures, builds
# and runs the consumer project against that prefix; any failing step fails
# the check. Inputs: BUILD_DIR, SOURCE_DIR, WORK_DIR, CXX.
file(REMOVE_RECURSE "${WORK_DIR}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix"
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${WORK_DIR}/build"
  -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_CXX_COMPILER=${CXX} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${WORK_DIR}/build" COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${WORK_DIR}/build/consumer" COMMAND_ERROR_IS_FATAL ANY)
