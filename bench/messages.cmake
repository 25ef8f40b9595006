# The benchmark's three messages, each field once: "name Kind". From these lists come the X-lists of the C++ sources and
# the schemas of the peers that generate code. A field's number is its place in the list, from 1; its id in the library's
# dictionary is the base plus the number.
#
# Kinds: Char, Int (mostly positive), SInt (mostly negative; the same 32-bit type, another wire form in one schema), Int64,
# Float, Double, String, Buffer, DateTime (packed 64-bit word), EpochNS.

set(quote_base 0)
set(quote_fields
  "symbol String" "venue String" "condition Char" "seq Int64"
  "bid Double" "bidsize Int" "ask Double" "asksize Int" "last Double" "lastsize Int" "open Double"
  "volume Int" "trades Int" "change SInt" "sent EpochNS" "session DateTime")

set(wide_base 100)
set(wide_pattern Double Int Double Int String Int64 Double Char SInt Double
                 Float Int Buffer Int EpochNS Int String Float DateTime Char)
set(wide_fields)
foreach(i RANGE 1 200)
  math(EXPR place "(${i} - 1) % 20")
  list(GET wide_pattern ${place} kind)
  list(APPEND wide_fields "f${i} ${kind}")
endforeach()

# Sparse: what a venue did not send is absent.
set(tick_base 400)
set(tick_fields
  "recv EpochNS" "venue String" "symbol String" "kind Char" "event Int64" "txn Int64" "seq Int64"
  "bid Double" "bidsize Double" "ask Double" "asksize Double" "price Double" "size Double" "side Char" "ordtype String")

set(proto_Char uint32)
set(proto_Int int32)
set(proto_SInt sint32)
set(proto_Int64 int64)
set(proto_Float float)
set(proto_Double double)
set(proto_String string)
set(proto_Buffer bytes)
set(proto_DateTime fixed64)
set(proto_EpochNS fixed64)

set(fbs_Char byte)
set(fbs_Int int)
set(fbs_SInt int)
set(fbs_Int64 long)
set(fbs_Float float)
set(fbs_Double double)
set(fbs_String string)
set(fbs_Buffer [ubyte])
set(fbs_DateTime ulong)
set(fbs_EpochNS ulong)

set(capnp_Char Int8)
set(capnp_Int Int32)
set(capnp_SInt Int32)
set(capnp_Int64 Int64)
set(capnp_Float Float32)
set(capnp_Double Float64)
set(capnp_String Text)
set(capnp_Buffer Data)
set(capnp_DateTime UInt64)
set(capnp_EpochNS UInt64)

# Writes message_lists.h, messages.proto, messages.fbs and messages.capnp to `folder`.
function(md_bench_generate folder)
  set(header "// Made by bench/messages.cmake: X(name, Name, kind, id, number) for each field.\n")
  set(proto "syntax = \"proto2\";\npackage md_bench_pb;\noption optimize_for = SPEED;\n")
  set(fbs "namespace md_bench_fb;\n")
  set(capnp "@0xb6a3c1f0d2e49857;\nusing Cxx = import \"/capnp/c++.capnp\";\n$Cxx.namespace(\"md_bench_cp\");\n")
  foreach(message IN ITEMS Quote Wide Tick)
    string(TOLOWER ${message} list)
    string(TOUPPER ${message} macro)
    string(APPEND header "#define MD_BENCH_${macro}_FIELDS(X)")
    string(APPEND proto "message ${message} {\n")
    string(APPEND fbs "table ${message} {\n")
    string(APPEND capnp "struct ${message} {\n")
    set(number 0)
    foreach(field IN LISTS ${list}_fields)
      separate_arguments(parts UNIX_COMMAND "${field}")
      list(GET parts 0 name)
      list(GET parts 1 kind)
      string(SUBSTRING ${name} 0 1 first)
      string(SUBSTRING ${name} 1 -1 rest)
      string(TOUPPER ${first} first)
      set(ordinal ${number})
      math(EXPR number "${number} + 1")
      math(EXPR id "${${list}_base} + ${number}")
      string(APPEND header " \\\n  X(${name}, ${first}${rest}, ${kind}, ${id}, ${number})")
      string(APPEND proto "  optional ${proto_${kind}} ${name} = ${number};\n")
      string(APPEND fbs "  ${name}:${fbs_${kind}};\n")
      string(APPEND capnp "  ${name} @${ordinal} :${capnp_${kind}};\n")
    endforeach()
    string(APPEND header "\n")
    foreach(schema IN ITEMS proto fbs capnp)
      string(APPEND ${schema} "}\n")
    endforeach()
  endforeach()
  file(CONFIGURE OUTPUT "${folder}/message_lists.h" CONTENT "${header}" @ONLY)
  foreach(schema IN ITEMS proto fbs capnp)
    file(CONFIGURE OUTPUT "${folder}/messages.${schema}" CONTENT "${${schema}}" @ONLY)
  endforeach()
endfunction()
