# RE2, for regular expressions in linear time. Defines RE2::RE2.
find_path(RE2_INCLUDE_DIR re2/re2.h)
find_library(RE2_LIBRARY re2)
mark_as_advanced(RE2_INCLUDE_DIR RE2_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(RE2 REQUIRED_VARS RE2_LIBRARY RE2_INCLUDE_DIR)

if(RE2_FOUND AND NOT TARGET RE2::RE2)
  add_library(RE2::RE2 UNKNOWN IMPORTED)
  set_target_properties(RE2::RE2 PROPERTIES
    IMPORTED_LOCATION "${RE2_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${RE2_INCLUDE_DIR}")
endif()
