# What is installed and packed: the library, its headers, the program, and what finds them (CMake package, pkg-config).
include(CMakePackageConfigHelpers)

set(MD_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/md_message")

# Components, which Debian's packages are made of: library, development, tools, python.
option(MD_DEBIAN_PACKAGES "Pack Debian packages, as scripts/package does" OFF)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(TARGETS md_message md_message_arrow EXPORT md_message-targets
  RUNTIME COMPONENT library
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development)
install(DIRECTORY include/md DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" FILES_MATCHING PATTERN "*.h")
install(FILES ${MD_C_HEADERS} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/md")

# The documents, with the folders of the repository, so that their links work.
if(MD_DEBIAN_PACKAGES)
  set(MD_DOCUMENTS_DIR share/doc/libmd-message-dev)
else()
  set(MD_DOCUMENTS_DIR "${CMAKE_INSTALL_DOCDIR}")
endif()
install(FILES README.md CHANGELOG.md CONTRIBUTING.md SECURITY.md DESTINATION "${MD_DOCUMENTS_DIR}")
install(DIRECTORY docs DESTINATION "${MD_DOCUMENTS_DIR}"
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png" PATTERN doxygen EXCLUDE)

install(EXPORT md_message-targets NAMESPACE md_message:: DESTINATION "${MD_CMAKE_DIR}")
if(TARGET md_message_static)
  install(TARGETS md_message_static EXPORT md_message-static-targets)
  install(EXPORT md_message-static-targets NAMESPACE md_message:: DESTINATION "${MD_CMAKE_DIR}")
  install(FILES cmake/FindTinyXML.cmake DESTINATION "${MD_CMAKE_DIR}")
endif()
configure_package_config_file(cmake/md_message-config.cmake.in "${PROJECT_BINARY_DIR}/md_message-config.cmake"
  INSTALL_DESTINATION "${MD_CMAKE_DIR}" PATH_VARS CMAKE_INSTALL_BINDIR NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/md_message-config-version.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/md_message-config.cmake" "${PROJECT_BINARY_DIR}/md_message-config-version.cmake"
  cmake/md_message_generate_fields.cmake
  DESTINATION "${MD_CMAKE_DIR}")

# Paths are relative to the pkg-config file itself, so that an unpacked archive works at any location.
file(RELATIVE_PATH MD_PREFIX_FROM_PC "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
cmake_path(NORMAL_PATH MD_PREFIX_FROM_PC)
cmake_path(APPEND MD_PC_LIBDIR "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND MD_PC_INCLUDEDIR "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
cmake_path(APPEND MD_PC_BINDIR "\${prefix}" "${CMAKE_INSTALL_BINDIR}")
configure_file(cmake/md_message.pc.in "${PROJECT_BINARY_DIR}/md_message.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/md_message.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

if(TARGET mdmsg)
  file(RELATIVE_PATH MD_LIBDIR_FROM_BINDIR "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
  if(NOT MD_DEBIAN_PACKAGES)  # which go where the dynamic linker looks anyway
    set_target_properties(mdmsg PROPERTIES INSTALL_RPATH "$ORIGIN/${MD_LIBDIR_FROM_BINDIR}")
  endif()
  install(TARGETS mdmsg COMPONENT tools)
endif()
if(TARGET mdmsg-nats)
  if(NOT MD_DEBIAN_PACKAGES)
    set_target_properties(mdmsg-nats PROPERTIES INSTALL_RPATH "$ORIGIN/${MD_LIBDIR_FROM_BINDIR}")
  endif()
  install(TARGETS mdmsg-nats COMPONENT nats)
endif()
if(TARGET mdmsg_descriptions)
  # Debian's own packages have their zsh functions in a folder of their own.
  if(EXISTS "/etc/debian_version" AND CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(MD_ZSH_FOLDER vendor-completions)
  else()
    set(MD_ZSH_FOLDER site-functions)
  endif()
  set(MD_DESCRIPTIONS "${PROJECT_BINARY_DIR}/tools")
  set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME tools)
  if(NOT MD_DEBIAN_PACKAGES)  # which hold it compressed
    install(FILES "${MD_DESCRIPTIONS}/man/mdmsg.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
  endif()
  install(FILES "${MD_DESCRIPTIONS}/bash/mdmsg" DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
  install(FILES "${MD_DESCRIPTIONS}/zsh/_mdmsg" DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/${MD_ZSH_FOLDER}")
  install(FILES "${MD_DESCRIPTIONS}/fish/mdmsg.fish" DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
endif()

if(TARGET md_message_python)
  # Below /usr where Debian's packages are, elsewhere where the interpreter of that prefix looks.
  if(EXISTS "/etc/debian_version" AND CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(MD_PYTHON_DIR lib/python3/dist-packages)
  else()
    set(MD_PYTHON_DIR "lib/python${MD_PYTHON_VERSION}/site-packages")
  endif()
  if(NOT MD_DEBIAN_PACKAGES)
    file(RELATIVE_PATH MD_LIBDIR_FROM_PYTHON "${CMAKE_INSTALL_PREFIX}/${MD_PYTHON_DIR}/md_message" "${CMAKE_INSTALL_FULL_LIBDIR}")
    set_target_properties(md_message_python PROPERTIES INSTALL_RPATH "$ORIGIN/${MD_LIBDIR_FROM_PYTHON}")
  endif()
  install(TARGETS md_message_python DESTINATION "${MD_PYTHON_DIR}/md_message" COMPONENT python)
  install(FILES ${MD_PYTHON_FILES} DESTINATION "${MD_PYTHON_DIR}/md_message" COMPONENT python)
endif()

if(TARGET mdmsg AND NOT WIN32)
  # Below /usr this is Wireshark's folder of Lua plugins for all users; elsewhere docs/wireshark.md says what to do with it.
  install(FILES wireshark/md_message.lua DESTINATION "${CMAKE_INSTALL_LIBDIR}/wireshark/plugins" COMPONENT tools)
endif()

if(MINGW)
  # The compiler's runtime: one for the library and its programs, since exceptions and streams pass between them.
  foreach(runtime IN ITEMS libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${runtime}
      OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/runtime")
    execute_process(COMMAND "${CMAKE_STRIP}" -o "${PROJECT_BINARY_DIR}/runtime/${runtime}" "${file}"
      COMMAND_ERROR_IS_FATAL ANY)
    install(FILES "${PROJECT_BINARY_DIR}/runtime/${runtime}" DESTINATION "${CMAKE_INSTALL_BINDIR}")
  endforeach()
  # With the runtime's licences (GPL 3 with the runtime library exception; winpthreads' own), where Debian keeps them.
  foreach(licence IN ITEMS
      doc/gcc-mingw-w64-x86-64-posix-runtime/copyright doc/mingw-w64-x86-64-dev/copyright common-licenses/GPL-3)
    if(EXISTS "/usr/share/${licence}")
      string(REGEX REPLACE "^doc/([^/]*)/copyright$" "\\1" name "${licence}")
      get_filename_component(name "${name}" NAME)
      install(FILES "/usr/share/${licence}" DESTINATION "${CMAKE_INSTALL_DOCDIR}/licences" RENAME "${name}.txt")
    else()
      message(WARNING "The package will lack a licence text of the runtime that it contains: /usr/share/${licence}")
    endif()
  endforeach()
endif()

if(WIN32)
  set(CPACK_GENERATOR ZIP)
else()
  set(CPACK_GENERATOR TGZ)
endif()
set(CPACK_PACKAGE_FILE_NAME "md_message-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
if(MD_DEBIAN_PACKAGES)
  include(cmake/debian/DebianPackages.cmake)
endif()
include(CPack)
