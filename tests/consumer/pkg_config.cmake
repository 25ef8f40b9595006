# Builds PROGRAM by the command line COMPILE with the flags that pkg-config prints for the library in LIBRARY_DIR, and compares its
# output with the file EXPECTED. With STATIC, a program that needs no shared library at all. With DICTIONARY, the program
# includes HEADER with its fields, which the package's mdmsg generates with the options GENERATE.
set(ENV{PKG_CONFIG_PATH} "${LIBRARY_DIR}/pkgconfig")
set(static "")
if(STATIC)
  set(static --static)
  string(APPEND COMPILE " -static")
endif()
execute_process(COMMAND "${PKG_CONFIG}" ${static} --cflags --libs "md_message >= 1.0"
  OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
if(DICTIONARY)
  execute_process(COMMAND "${PKG_CONFIG}" --variable=mdmsg md_message
    OUTPUT_VARIABLE mdmsg OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  cmake_path(GET PROGRAM PARENT_PATH folder)
  separate_arguments(generate UNIX_COMMAND "${GENERATE}")
  execute_process(COMMAND "${mdmsg}" dict generate ${generate} --force --output "${folder}/${HEADER}" "${DICTIONARY}"
    COMMAND_ERROR_IS_FATAL ANY)
  string(APPEND COMPILE " -I${folder}")
endif()
separate_arguments(command UNIX_COMMAND "${COMPILE} -o ${PROGRAM} ${flags}")
execute_process(COMMAND ${command} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
if(NOT STATIC)
  set(ENV{LD_LIBRARY_PATH} "${LIBRARY_DIR}")
endif()
include("${CMAKE_CURRENT_LIST_DIR}/../../cmake/CompareOutput.cmake")
