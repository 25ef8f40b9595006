# Packs the build BUILD with CPACK and unpacks the archive as the folder DESTINATION.
set(work "${DESTINATION}-package")
file(REMOVE_RECURSE "${work}" "${DESTINATION}")
file(MAKE_DIRECTORY "${work}")
execute_process(COMMAND "${CPACK}" --config "${BUILD}/CPackConfig.cmake" -C "${CONFIG}" -B "${work}"
  OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE status)
file(GLOB archive "${work}/*.tar.gz" "${work}/*.zip")
list(LENGTH archive count)
if(NOT status EQUAL 0 OR NOT count EQUAL 1)
  message(FATAL_ERROR "cpack ended with ${status} and left ${count} archives:\n${output}")
endif()
file(ARCHIVE_EXTRACT INPUT "${archive}" DESTINATION "${work}/unpacked")
file(GLOB root "${work}/unpacked/*")
file(RENAME "${root}" "${DESTINATION}")
