# zem-header-check: every public header compiled on its own, in a translation unit that includes
# nothing else, with nothing on its search path but what an embedder has.
file(GLOB_RECURSE HEADERS CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/Sources
    ${PROJECT_SOURCE_DIR}/Sources/*.h)
list(FILTER HEADERS EXCLUDE REGEX /Private/)
set(UNITS "")
foreach(HEADER IN LISTS HEADERS)
    set(UNIT ${CMAKE_CURRENT_BINARY_DIR}/header-check/${HEADER}.cpp)
    file(CONFIGURE OUTPUT ${UNIT} CONTENT "#include <zem/${HEADER}>\n")
    list(APPEND UNITS ${UNIT})
endforeach()
add_library(zem-header-check OBJECT EXCLUDE_FROM_ALL ${UNITS})
target_link_libraries(zem-header-check PRIVATE zem::zem zem_options)
