# The C client of NATS. Defines NATS::NATS.
find_path(NATS_INCLUDE_DIR nats/nats.h)
find_library(NATS_LIBRARY nats)
mark_as_advanced(NATS_INCLUDE_DIR NATS_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(NATS REQUIRED_VARS NATS_LIBRARY NATS_INCLUDE_DIR)

if(NATS_FOUND AND NOT TARGET NATS::NATS)
  add_library(NATS::NATS UNKNOWN IMPORTED)
  set_target_properties(NATS::NATS PROPERTIES
    IMPORTED_LOCATION "${NATS_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${NATS_INCLUDE_DIR}")
endif()
