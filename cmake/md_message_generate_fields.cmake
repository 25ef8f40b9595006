# md_message_generate_fields(TARGET DICTIONARY FILE NAMESPACE NAME
#                            [LANGUAGE c++|c] [PREFIX PREFIX] [ONLY FIELD...] [HEADER FILE])
#
# Generates a header with the fields of a dictionary as constants whenever the dictionary changes, and lets the sources of
# TARGET include it as NAME.h, of nested namespaces as OUTER_INNER.h, or by the name HEADER. A relative FILE is in the
# current source folder. The options are those of "mdmsg dict generate", which docs/dictionary.md describes.
#
# It runs mdmsg: the one that MD_MESSAGE_MDMSG names, else the one of this build or of the installed package.
function(md_message_generate_fields target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "DICTIONARY;NAMESPACE;LANGUAGE;PREFIX;HEADER" "ONLY")
  if(arg_UNPARSED_ARGUMENTS OR arg_KEYWORDS_MISSING_VALUES)
    message(FATAL_ERROR "md_message_generate_fields(${target}): unexpected ${arg_UNPARSED_ARGUMENTS}"
      "${arg_KEYWORDS_MISSING_VALUES}")
  endif()
  if(NOT arg_DICTIONARY OR NOT arg_NAMESPACE)
    message(FATAL_ERROR "md_message_generate_fields(${target}): DICTIONARY and NAMESPACE are required")
  endif()
  if(NOT TARGET ${target})
    message(FATAL_ERROR "md_message_generate_fields(${target}): there is no target ${target}")
  endif()

  if(MD_MESSAGE_MDMSG)
    set(program "${MD_MESSAGE_MDMSG}")
  elseif(TARGET md_message::mdmsg)
    set(program md_message::mdmsg)
  else()
    message(FATAL_ERROR "md_message_generate_fields(${target}): the program mdmsg was not found${MD_MESSAGE_MDMSG_MISSING}."
      " Install it (component tools, Debian package mdmsg), build it with the library (MD_BUILD_TOOLS), or set"
      " MD_MESSAGE_MDMSG to its path.")
  endif()

  set(language "c++")
  if(arg_LANGUAGE)
    set(language "${arg_LANGUAGE}")
  endif()
  string(REPLACE "::" "_" header "${arg_NAMESPACE}.h")
  if(arg_HEADER)
    set(header "${arg_HEADER}")
  endif()
  set(options --language "${language}" --namespace "${arg_NAMESPACE}")
  if(arg_PREFIX)
    list(APPEND options --prefix "${arg_PREFIX}")
  endif()
  if(arg_ONLY)
    list(JOIN arg_ONLY "," only)
    list(APPEND options --only "${only}")
  endif()

  cmake_path(ABSOLUTE_PATH arg_DICTIONARY BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" OUTPUT_VARIABLE dictionary)
  set(folder "${CMAKE_CURRENT_BINARY_DIR}/md_message_fields/${target}")
  set(output "${folder}/${header}")
  cmake_path(GET output PARENT_PATH output_folder)
  file(MAKE_DIRECTORY "${output_folder}")
  add_custom_command(OUTPUT "${output}"
    COMMAND "${program}" dict generate ${options} --force --output "${output}" "${dictionary}"
    DEPENDS "${dictionary}" "${program}"
    COMMENT "Generating ${header} from ${arg_DICTIONARY}"
    VERBATIM)
  # A target of its own, since a rule alone is known to targets of this folder only.
  string(MAKE_C_IDENTIFIER "${target}_${header}" generation)
  add_custom_target(${generation} DEPENDS "${output}")
  add_dependencies(${target} ${generation})
  target_include_directories(${target} PRIVATE "${folder}")
endfunction()
