# The Debian packages libmd-message1, libmd-message-dev, mdmsg and, where Python and the NATS client were found,
# python3-md-message and md-message-nats. scripts/package configures, builds and checks them.
if(NOT TARGET mdmsg_descriptions)
  message(FATAL_ERROR "MD_DEBIAN_PACKAGES needs the mdmsg tool: MD_BUILD_TOOLS=ON")
endif()
set(MD_PACKAGE_MAINTAINER "md_message developers <md_message@packages.invalid>" CACHE STRING "Maintainer of the packages")

# Compressed as Debian requires: without a time stamp.
function(md_compress input output)
  execute_process(COMMAND gzip -9nc INPUT_FILE "${input}" OUTPUT_FILE "${output}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(debian "${PROJECT_BINARY_DIR}/debian")
file(MAKE_DIRECTORY "${debian}")
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(cmake/debian/changelog.in "${debian}/changelog.Debian" @ONLY)
md_compress("${debian}/changelog.Debian" "${debian}/changelog.Debian.gz")
md_compress("${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${debian}/changelog.gz")

set(version "${PROJECT_VERSION}-1")
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(components library development tools)
if(TARGET md_message_python)
  list(APPEND components python)
endif()
if(TARGET mdmsg-nats)
  list(APPEND components nats)
endif()
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${MD_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
if(CMAKE_CROSSCOMPILING)
  if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    message(FATAL_ERROR "MD_DEBIAN_PACKAGES does not know Debian's name for ${CMAKE_SYSTEM_PROCESSOR}")
  endif()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    "${MD_ARM64_ROOT}/lib/aarch64-linux-gnu" "${MD_ARM64_ROOT}/usr/lib/aarch64-linux-gnu")
endif()
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libmd-message1)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "market-data messages that are always in serialised form
A message is a set of fields, each a 16-bit id and one value, in one of three
wire encodings. Sending needs no encoding step, and received bytes are parsed
in a single pass. A dictionary, loaded once per process, declares the fields.")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/debian/triggers")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmd-message-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libmd-message1 (= ${version})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS libtinyxml-dev)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "market-data messages, development files
Headers for C++17 and C, the static library, the CMake package, the
pkg-config file, documents and examples. Linking the static library also
needs libtinyxml-dev.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME mdmsg)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libmd-message1 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "wireshark | tshark")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "market-data messages in pipes and files
Converts JSON and CSV to messages and back, transcodes between encodings,
dumps messages byte by byte and prints statistics. Reads hex lines, raw and
length-prefixed messages and captures; generates, sends and receives feeds.
Includes a dissector for Wireshark.")

if(TARGET mdmsg-nats)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "wireshark | tshark, md-message-nats")
  set(CPACK_DEBIAN_NATS_PACKAGE_NAME md-message-nats)
  set(CPACK_DEBIAN_NATS_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_NATS_PACKAGE_DEPENDS "mdmsg (= ${version})")
  set(CPACK_DEBIAN_NATS_PACKAGE_SUGGESTS nats-server)
  set(CPACK_DEBIAN_NATS_DESCRIPTION "market-data messages on NATS
Runs the commands publish and subscribe of mdmsg: messages with subjects made
of field values, by core NATS or acknowledged by a JetStream stream, with
replay, snapshots and durable positions.")
endif()

if(TARGET md_message_python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-md-message)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "libmd-message1 (= ${version}), python3 (>= 3.11)")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-numpy, python3-pandas")
  set(CPACK_DEBIAN_PYTHON_DESCRIPTION "market-data messages, Python package
Messages as mutable mappings of field names to values, the readers of the
program mdmsg as iterators, and received datagrams in batches. One extension
module serves Python 3.11 and all later versions.")
  # Compiled modules come and go with the package.
  foreach(script IN ITEMS postinst prerm)
    configure_file("cmake/debian/python-${script}" "${debian}/${script}" @ONLY
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  endforeach()
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA "${debian}/postinst;${debian}/prerm")
endif()

foreach(component IN LISTS components)
  string(TOUPPER "${component}" upper)
  set(doc "share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
  install(FILES cmake/debian/copyright "${debian}/changelog.gz" "${debian}/changelog.Debian.gz" DESTINATION "${doc}"
    COMPONENT ${component})
endforeach()
set(examples share/doc/libmd-message-dev/examples)
install(DIRECTORY examples/ DESTINATION "${examples}" COMPONENT development
  PATTERN CMakeLists.txt EXCLUDE PATTERN expected EXCLUDE)
install(FILES etc/field_map.txt DESTINATION "${examples}" COMPONENT development)
if(TARGET md_message_python)
  install(DIRECTORY python/examples DESTINATION share/doc/python3-md-message COMPONENT python FILES_MATCHING PATTERN "*.py")
endif()

add_custom_command(OUTPUT "${debian}/mdmsg.1.gz"
  COMMAND gzip -9nc "${PROJECT_BINARY_DIR}/tools/man/mdmsg.1" > "${debian}/mdmsg.1.gz"
  DEPENDS "${PROJECT_BINARY_DIR}/tools/man/mdmsg.1" mdmsg_descriptions)
add_custom_target(compressed_manual ALL DEPENDS "${debian}/mdmsg.1.gz")
if(TARGET mdmsg-nats)
  file(WRITE "${debian}/mdmsg-nats.1" ".so man1/mdmsg.1\n")
  md_compress("${debian}/mdmsg-nats.1" "${debian}/mdmsg-nats.1.gz")
  install(FILES "${debian}/mdmsg-nats.1.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT nats)
endif()
install(FILES "${debian}/mdmsg.1.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools)
