# Makes the text of a manual page.
#
#   cmake -D PAGE=<page>.scd -D OUT=<file> -D VERSION=<version>
#         [-D KRTCTL=<program>] [-D HEADER=<header>] -P page.cmake
#
# @OPTIONS@ and @VERBS@ become what the client itself tells of its options and
# verbs, @PROTOTYPES@ the functions that a header declares: neither is written
# down twice.
cmake_minimum_required(VERSION 3.25)
file(READ ${PAGE} text)

# Marks of scdoc in a text that is none of its own.
function(escape out text)
  string(REGEX REPLACE "([\\*_<>#\\[])" "\\\\\\1" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# One paragraph for each of the options in a JSON list.
function(options_text out list indent)
  set(text "")
  string(JSON count LENGTH "${list}")
  if(count GREATER 0)
    math(EXPR last "${count} - 1")
    foreach(i RANGE ${last})
      string(JSON name GET "${list}" ${i} name)
      string(JSON help GET "${list}" ${i} help)
      string(JSON letter ERROR_VARIABLE none GET "${list}" ${i} letter)
      string(JSON value ERROR_VARIABLE no_value GET "${list}" ${i} value)
      escape(help "${help}")
      string(APPEND text "${indent}")
      if(none STREQUAL "NOTFOUND")
        string(APPEND text "*-${letter}*, ")
      endif()
      string(APPEND text "*--${name}*")
      if(no_value STREQUAL "NOTFOUND")
        escape(value "${value}")
        string(APPEND text " _${value}_")
      endif()
      string(APPEND text "\n${indent}\t${help}\n\n")
    endforeach()
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

if(KRTCTL)
  execute_process(COMMAND ${KRTCTL} help --json OUTPUT_VARIABLE table
                  COMMAND_ERROR_IS_FATAL ANY)
  set(VERBS "")
  string(JSON count LENGTH "${table}")
  math(EXPR last "${count} - 1")
  foreach(i RANGE ${last})
    string(JSON type GET "${table}" ${i} type)
    string(JSON list GET "${table}" ${i} options)
    if(type STREQUAL "options")
      options_text(OPTIONS "${list}" "")
      continue()
    endif()
    string(JSON name GET "${table}" ${i} name)
    string(JSON arguments GET "${table}" ${i} arguments)
    string(JSON help GET "${table}" ${i} help)
    options_text(options "${list}" "\t")
    escape(arguments "${arguments}")
    escape(help "${help}")
    string(STRIP "*${name}* ${arguments}" verb)
    string(APPEND VERBS "${verb}\n\t${help}\n\n${options}")
  endforeach()
endif()

if(HEADER)
  execute_process(
    COMMAND awk -f ${CMAKE_CURRENT_LIST_DIR}/prototypes.awk ${HEADER}
    OUTPUT_VARIABLE PROTOTYPES OUTPUT_STRIP_TRAILING_WHITESPACE
                    COMMAND_ERROR_IS_FATAL ANY)
endif()

foreach(name IN ITEMS VERSION OPTIONS VERBS PROTOTYPES)
  string(REPLACE "@${name}@" "${${name}}" text "${text}")
endforeach()
file(WRITE ${OUT} "${text}")
