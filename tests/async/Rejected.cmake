# Compiles each case of Rejected.cpp with COMPILER; INCLUDE is where the headers are. Each must give one error: its own sentence.
cmake_minimum_required(VERSION 3.25)
set(source ${CMAKE_CURRENT_LIST_DIR}/Rejected.cpp)
set(sentences compiles)
file(STRINGS ${source} lines REGEX "CASE == [0-9]+ //")
foreach(line IN LISTS lines)
    string(REGEX REPLACE ".*// " "" sentence "${line}")
    list(APPEND sentences "${sentence}")
endforeach()
set(case 0)
foreach(sentence IN LISTS sentences)
    execute_process(
        COMMAND ${COMPILER} -std=c++20 -fsyntax-only -I${INCLUDE} -DCASE=${case} ${source} ERROR_VARIABLE errors
        RESULT_VARIABLE failed
    )
    string(REGEX MATCHALL "error: [^\n]*" found "${errors}")
    string(FIND "${found}" "${sentence}" position)
    list(LENGTH found count)
    if(case EQUAL 0 AND failed OR case GREATER 0 AND (NOT count EQUAL 1 OR position EQUAL -1))
        message(SEND_ERROR "case ${case}, ${sentence}: ${errors}")
    endif()
    math(EXPR case "${case} + 1")
endforeach()
