# Configures the project SOURCE with a copy of the package INSTALLED that lacks PROGRAM: the error names the folder and
# the ways out. With MD_MESSAGE_MDMSG it is configured.
file(REMOVE_RECURSE "${WORK}")
file(COPY "${INSTALLED}/" DESTINATION "${WORK}/package")
file(RENAME "${WORK}/package/${PROGRAM}" "${WORK}/mdmsg")
cmake_path(GET PROGRAM PARENT_PATH folder)

function(configure out)
  execute_process(COMMAND "${CMAKE_COMMAND}" -S "${SOURCE}" -B "${WORK}/build" -G "${GENERATOR}"
    "-DCMAKE_C_COMPILER=${CC}" "-DCMAKE_CXX_COMPILER=${CXX}"
    "-Dmd_message_DIR=${WORK}/package/${PACKAGE}" ${ARGN}
    OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE status)
  # CMake breaks the lines of its messages.
  string(REGEX REPLACE "[ \n]+" " " output "${output}")
  set(${out} "${output}" PARENT_SCOPE)
  set(status "${status}" PARENT_SCOPE)
endfunction()

configure(output)
string(FIND "${output}" "the program mdmsg was not found in ${WORK}/package/${folder}. Install it (component tools, Debian \
package mdmsg), build it with the library (MD_BUILD_TOOLS), or set MD_MESSAGE_MDMSG to its path." position)
if(status EQUAL 0 OR position EQUAL -1)
  message(FATAL_ERROR "without the program, CMake ended with ${status}:\n${output}")
endif()
configure(output "-DMD_MESSAGE_MDMSG=${WORK}/mdmsg")
if(NOT status EQUAL 0)
  message(FATAL_ERROR "with MD_MESSAGE_MDMSG, CMake ended with ${status}:\n${output}")
endif()
