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

# What goes with the program.
if(EXISTS "${BUILD}/tools/man/mdmsg.1")
  foreach(file IN ITEMS man/man1/mdmsg.1 bash-completion/completions/mdmsg fish/vendor_completions.d/mdmsg.fish)
    if(NOT EXISTS "${DESTINATION}/share/${file}")
      message(FATAL_ERROR "the package has no share/${file}")
    endif()
  endforeach()
  file(GLOB functions "${DESTINATION}/share/zsh/*/_mdmsg")
  if(NOT functions)
    message(FATAL_ERROR "the package has no completion for zsh")
  endif()
endif()

# The documents, with the folders that their links need.
foreach(file IN ITEMS README.md SECURITY.md docs/guide.md docs/images/architecture.svg)
  if(NOT EXISTS "${DESTINATION}/share/doc/md_message/${file}")
    message(FATAL_ERROR "the package has no share/doc/md_message/${file}")
  endif()
endforeach()
