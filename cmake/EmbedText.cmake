# Writes a C++ header that holds the text of each input file as a string_view constant, so the
# statements the program runs are exactly the statements kept in the files. The file's final line
# feed ends its last line and is not part of the text.
#
#   cmake -DOUTPUT=<header> -DNAMESPACE=<ns> -DINPUTS="<constant>=<file>;..." -P EmbedText.cmake
set(content "// Generated from the SQL files beside the store; edit those, not this.\n#pragma once\n\n#include <string_view>\n\nnamespace ${NAMESPACE} {\n")
foreach(pair IN LISTS INPUTS)
  string(FIND "${pair}" "=" split)
  string(SUBSTRING "${pair}" 0 ${split} name)
  math(EXPR start "${split} + 1")
  string(SUBSTRING "${pair}" ${start} -1 file)
  file(READ "${file}" text)
  string(REGEX REPLACE "\n$" "" text "${text}")
  if(text MATCHES "\\)brimlog_text\"")
    message(FATAL_ERROR "${file} contains the raw-string delimiter")
  endif()
  string(APPEND content "\ninline constexpr std::string_view ${name} = R\"brimlog_text(${text})brimlog_text\";\n")
endforeach()
string(APPEND content "\n}  // namespace ${NAMESPACE}\n")
file(WRITE "${OUTPUT}.tmp" "${content}")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
