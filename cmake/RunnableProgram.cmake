# Programs that start programs of this build, or themselves, need files that the system can run.
#
#   md_runnable_program(TARGET [VARIABLE])
#
# sets VARIABLE to such a file for the program TARGET. Under an emulator it is a script, emulated/NAME beside the program, which
# cmake/arm64-run.sh gives the program as its own name; otherwise it is the program. Wine starts what its programs start.
function(md_runnable_program target)
  set(file "$<TARGET_FILE:${target}>")
  if(CMAKE_CROSSCOMPILING_EMULATOR AND NOT WIN32)
    set(program "${file}")
    set(file "$<TARGET_FILE_DIR:${target}>/emulated/$<TARGET_FILE_NAME:${target}>")
    get_target_property(isGenerated ${target} MD_RUNNABLE_SCRIPT)
    if(NOT isGenerated)
      set_target_properties(${target} PROPERTIES MD_RUNNABLE_SCRIPT ON)
      file(GENERATE OUTPUT "${file}" CONTENT "#!/bin/sh\nexec '${CMAKE_CROSSCOMPILING_EMULATOR}' '${program}' \"$@\"\n"
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    endif()
  endif()
  if(ARGC GREATER 1)
    set(${ARGV1} "${file}" PARENT_SCOPE)
  endif()
endfunction()
