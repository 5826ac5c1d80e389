# Who may include whom: a folder's row names the header prefixes that it may use besides its own. Tests, examples and benchmarks may
# use all but other libraries' internal headers, tests those too.
cmake_minimum_required(VERSION 3.25)
set(rows
    "connector/api=connector/Export.h"
    "connector/context=connector/Export.h connector/api/"
    "connector/async=connector/Export.h connector/api/"
    "connector/diagnostics=connector/Export.h fl/"
    "connector/internal=connector/api/ connector/context/"
    "connector/core=connector/Export.h connector/api/ connector/context/ connector/internal/ connector/diagnostics/"
    "connector/exchange=connector/Export.h connector/api/ connector/context/ connector/internal/ foundation/"
    "platform/fl="
    "platform/foundation=fl/except/"
)

set(failed FALSE)
foreach(row IN LISTS rows)
    string(REGEX MATCH "^([^=]+)=(.*)$" _ "${row}")
    set(folder "${CMAKE_MATCH_1}")
    string(REPLACE " " ";" allowed "${CMAKE_MATCH_2}")
    string(REGEX REPLACE "^platform/" "" own "${folder}")
    list(APPEND allowed "${own}/")
    file(GLOB_RECURSE files "${folder}/*.h" "${folder}/*.cpp")
    foreach(file IN LISTS files)
        file(STRINGS "${file}" lines REGEX "^ *#include *<(connector|fl|foundation)/|^ *#include *\"")
        foreach(line IN LISTS lines)
            set(ok FALSE)
            foreach(prefix IN LISTS allowed)
                string(FIND "${line}" "<${prefix}" position)
                if(NOT position EQUAL -1)
                    set(ok TRUE)
                endif()
            endforeach()
            if(NOT ok)
                message("${file}: ${line}: ${folder} may include only ${allowed}")
                set(failed TRUE)
            endif()
        endforeach()
        # What is installed must not need what is not.
        string(REGEX MATCH "\\.h$" header "${file}")
        if(header AND NOT file MATCHES "/internal/")
            file(STRINGS "${file}" lines REGEX "^ *#include.*/internal/")
            if(lines)
                message("${file}: ${lines}: an installed header can't include an internal one")
                set(failed TRUE)
            endif()
        endif()
    endforeach()
endforeach()
if(failed)
    message(FATAL_ERROR "some includes break the layering")
endif()
