# TinyXML 1, which ships no CMake package. Defines TinyXML::TinyXML: the system's library or, where TINYXML_SOURCE_DIR
# names its unpacked sources, a static library built from them.
set(TINYXML_SOURCE_DIR "" CACHE PATH "TinyXML's sources, to build it instead of using the system's library")

include(FindPackageHandleStandardArgs)
if(TINYXML_SOURCE_DIR)
  find_package_handle_standard_args(TinyXML REQUIRED_VARS TINYXML_SOURCE_DIR)
  if(NOT TARGET TinyXML::TinyXML)
    add_library(tinyxml STATIC EXCLUDE_FROM_ALL
      "${TINYXML_SOURCE_DIR}/tinystr.cpp"
      "${TINYXML_SOURCE_DIR}/tinyxml.cpp"
      "${TINYXML_SOURCE_DIR}/tinyxmlerror.cpp"
      "${TINYXML_SOURCE_DIR}/tinyxmlparser.cpp"
    )
    set_target_properties(tinyxml PROPERTIES POSITION_INDEPENDENT_CODE ON COMPILE_WARNING_AS_ERROR OFF)
    target_include_directories(tinyxml SYSTEM INTERFACE "${TINYXML_SOURCE_DIR}")
    target_compile_definitions(tinyxml PUBLIC TIXML_USE_STL)
    add_library(TinyXML::TinyXML ALIAS tinyxml)
  endif()
  return()
endif()

find_path(TinyXML_INCLUDE_DIR tinyxml.h)
find_library(TinyXML_LIBRARY tinyxml)
mark_as_advanced(TinyXML_INCLUDE_DIR TinyXML_LIBRARY)

find_package_handle_standard_args(TinyXML REQUIRED_VARS TinyXML_LIBRARY TinyXML_INCLUDE_DIR)

if(TinyXML_FOUND AND NOT TARGET TinyXML::TinyXML)
  add_library(TinyXML::TinyXML UNKNOWN IMPORTED)
  set_target_properties(TinyXML::TinyXML PROPERTIES
    IMPORTED_LOCATION "${TinyXML_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${TinyXML_INCLUDE_DIR}"
    INTERFACE_COMPILE_DEFINITIONS TIXML_USE_STL)  # as the library is built; the classes' layout depends on it
endif()
