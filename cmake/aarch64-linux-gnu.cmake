# Builds for 64-bit ARM with Debian's cross compiler; programs run under qemu. scripts/test-arm64 sets all of it up.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# The libraries that scripts/arm64-libraries has unpacked. Those of the compiler are found beside it.
get_filename_component(MD_ARM64_ROOT "${CMAKE_CURRENT_LIST_DIR}/../build-arm64-deps/root" ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH "${MD_ARM64_ROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# CLI11 and nlohmann-json, headers alone, are those of this system.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
# Debian keeps headers that differ between architectures, and libraries that others load, in folders by architecture.
string(APPEND CMAKE_C_FLAGS_INIT " -idirafter ${MD_ARM64_ROOT}/usr/include/aarch64-linux-gnu")
string(APPEND CMAKE_CXX_FLAGS_INIT " -idirafter ${MD_ARM64_ROOT}/usr/include/aarch64-linux-gnu")
set(MD_ARM64_LINK_PATH "${MD_ARM64_ROOT}/lib/aarch64-linux-gnu:${MD_ARM64_ROOT}/usr/lib/aarch64-linux-gnu")
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${MD_ARM64_LINK_PATH}")
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath-link,${MD_ARM64_LINK_PATH}")

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/arm64-run.sh")
