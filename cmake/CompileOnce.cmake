# cmake -DOUTPUT=OBJECT -DCACHE_DIR=FOLDER -P CompileOnce.cmake -- COMPILER ARGUMENTS...
# Takes OUTPUT out of the cache; compiles it into the cache where it is not there yet. The name of the
# object carries everything that its content depends on.
set(COMMAND "")
set(SEEN FALSE)
math(EXPR LAST "${CMAKE_ARGC} - 1")
foreach(INDEX RANGE ${LAST})
    if(SEEN)
        list(APPEND COMMAND "${CMAKE_ARGV${INDEX}}")
    elseif(CMAKE_ARGV${INDEX} STREQUAL "--")
        set(SEEN TRUE)
    endif()
endforeach()

get_filename_component(NAME ${OUTPUT} NAME)
set(KEPT ${CACHE_DIR}/${NAME})
if(NOT EXISTS ${KEPT})
    file(MAKE_DIRECTORY ${CACHE_DIR})
    # Compiled under another name and then renamed: another build never reads half a file.
    string(RANDOM LENGTH 8 UNIQUE)
    execute_process(COMMAND ${COMMAND} -o ${KEPT}.${UNIQUE} COMMAND_ERROR_IS_FATAL ANY)
    file(RENAME ${KEPT}.${UNIQUE} ${KEPT})
endif()
configure_file(${KEPT} ${OUTPUT} COPYONLY)
file(TOUCH ${OUTPUT})
