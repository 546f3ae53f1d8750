# Fails unless README.md shows what really is there.
# cmake -D FILE=<source file> -P check_readme.cmake: the whole file is the README's C block.
# cmake -D TOOL=<h264tool> -P check_readme.cmake: the README's block under "$ ./dev demo" is what h264tool prints of the
# sample stream; a line "..." stands for lines that are left out.
cmake_minimum_required(VERSION 3.25)
get_filename_component(root ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)

file(READ ${root}/README.md readme)

if(FILE)
  file(READ ${FILE} source)
  string(FIND "${readme}" "```c\n${source}```\n" position)
  if(position EQUAL -1)
    message(FATAL_ERROR "README.md does not show ${FILE} as it is")
  endif()
  return()
endif()

execute_process(
  COMMAND ${TOOL} dump samples/interlaced_hrd.h264
  WORKING_DIRECTORY ${root}
  OUTPUT_VARIABLE output
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "h264tool ended with ${result}")
endif()

# cut(<variable> <separator> <head variable>): moves what stands before the separator from the variable to the head.
function(cut variable separator head)
  string(FIND "${${variable}}" "${separator}" position)
  if(position EQUAL -1)
    message(FATAL_ERROR "Not found (or not in this order):\n${separator}")
  endif()
  string(LENGTH "${separator}" length)
  math(EXPR rest "${position} + ${length}")
  string(SUBSTRING "${${variable}}" 0 ${position} head_text)
  string(SUBSTRING "${${variable}}" ${rest} -1 rest_text)
  set(${head} "${head_text}" PARENT_SCOPE)
  set(${variable} "${rest_text}" PARENT_SCOPE)
endfunction()

cut(readme "```text\n$ ./dev demo\n" ignored)
cut(readme "```" shown)
if(shown STREQUAL "")
  message(FATAL_ERROR "README.md shows no output")
endif()

# The parts between "..." lines are in the output, in the same order.
string(APPEND shown "...\n")
while(NOT shown STREQUAL "")
  cut(shown "...\n" part)
  if(NOT part STREQUAL "")
    cut(output "${part}" ignored)
  endif()
endwhile()
