# The peers, from Debian's packages (scripts/install-deps bench). Their headers and generated sources are system headers:
# the project's warnings are for its own code.
find_package(Protobuf REQUIRED)
find_package(FlatBuffers CONFIG REQUIRED)
find_package(CapnProto CONFIG REQUIRED)
find_package(msgpack CONFIG REQUIRED)
find_package(bson-1.0 REQUIRED)
find_package(RapidJSON REQUIRED)
# Programs by name: the packages' own targets for them are missing or point to where nothing is.
find_program(MD_FLATC flatc REQUIRED)
find_program(MD_CAPNP capnp REQUIRED)
find_program(MD_CAPNPC_CXX capnpc-c++ REQUIRED)
mark_as_advanced(MD_FLATC MD_CAPNP MD_CAPNPC_CXX)

set(schemas "${CMAKE_CURRENT_BINARY_DIR}")
set(generated "${CMAKE_CURRENT_BINARY_DIR}/generated")
file(MAKE_DIRECTORY "${generated}")

add_custom_command(
  OUTPUT "${generated}/messages.pb.cc" "${generated}/messages.pb.h"
  COMMAND protobuf::protoc "--proto_path=${schemas}" "--cpp_out=${generated}" "${schemas}/messages.proto"
  DEPENDS "${schemas}/messages.proto" VERBATIM)
add_custom_command(
  OUTPUT "${generated}/messages_generated.h"
  COMMAND "${MD_FLATC}" --cpp --gen-mutable -o "${generated}" "${schemas}/messages.fbs"
  DEPENDS "${schemas}/messages.fbs" VERBATIM)
add_custom_command(
  OUTPUT "${generated}/messages.capnp.c++" "${generated}/messages.capnp.h"
  COMMAND "${MD_CAPNP}" compile "--output=${MD_CAPNPC_CXX}:${generated}" "--src-prefix=${schemas}" "${schemas}/messages.capnp"
  DEPENDS "${schemas}/messages.capnp" VERBATIM)

add_library(md_bench_schemas STATIC
  "${generated}/messages.pb.cc" "${generated}/messages.capnp.c++" "${generated}/messages_generated.h")
target_compile_features(md_bench_schemas PUBLIC cxx_std_17)
target_include_directories(md_bench_schemas SYSTEM PUBLIC "${generated}")
target_link_libraries(md_bench_schemas PUBLIC protobuf::libprotobuf flatbuffers::flatbuffers CapnProto::capnp)

target_sources(md_bench PRIVATE
  peers/bson.cpp
  peers/capnproto.cpp
  peers/flatbuffers.cpp
  peers/msgpack.cpp
  peers/protobuf.cpp
  peers/protobuf_dynamic.cpp
  peers/rapidjson.cpp
)
target_include_directories(md_bench SYSTEM PRIVATE ${RAPIDJSON_INCLUDE_DIRS})
target_link_libraries(md_bench PRIVATE md_bench_schemas msgpackc-cxx mongo::bson_shared)
