# Defines the target ZEM::SQLCipher: a system SQLCipher of at least 4.5 where there is one, else the
# pinned amalgamation from npm, compiled once for each compiler and set of flags and kept in a cache
# folder that outlives the build folder.
set(ZEM_SQLCIPHER_MINIMUM 4.5)
set(ZEM_SQLCIPHER "auto" CACHE STRING "Which SQLCipher: auto, system or amalgamation")
set_property(CACHE ZEM_SQLCIPHER PROPERTY STRINGS auto system amalgamation)
get_filename_component(SQLCIPHER_NPM_ROOT ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
set(ZEM_SQLCIPHER_AMALGAMATION
    ${SQLCIPHER_NPM_ROOT}/node_modules/@journeyapps/sqlcipher/deps/sqlcipher-amalgamation
    CACHE PATH "Folder that holds SQLCipher's sqlite3.c and sqlite3.h")

add_library(zem_sqlcipher INTERFACE)
add_library(ZEM::SQLCipher ALIAS zem_sqlcipher)

# The package's own version says nothing: Debian gives its pkg-config file SQLite's. Ask the library.
# pkg-config is asked anew each time, so that a package removed or upgraded since is noticed.
function(zem_system_sqlcipher_version RESULT)
    set(${RESULT} "" PARENT_SCOPE)
    get_cmake_property(CACHED CACHE_VARIABLES)
    foreach(VARIABLE IN LISTS CACHED)
        if(VARIABLE MATCHES "^(__)?(pkg_config_checked_|pkgcfg_lib_)?SYSTEM_SQLCIPHER")
            unset(${VARIABLE} CACHE)
        endif()
    endforeach()
    pkg_check_modules(SYSTEM_SQLCIPHER QUIET IMPORTED_TARGET GLOBAL sqlcipher)
    if(NOT SYSTEM_SQLCIPHER_FOUND)
        return()
    endif()
    try_run(RAN COMPILED ${CMAKE_CURRENT_BINARY_DIR}/sqlcipher-version
        SOURCES ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/sqlcipher_version.c
        LINK_LIBRARIES PkgConfig::SYSTEM_SQLCIPHER
        RUN_OUTPUT_VARIABLE PRINTED)
    if(COMPILED AND RAN EQUAL 0)
        string(REGEX MATCH "^[0-9]+\\.[0-9]+(\\.[0-9]+)?" VERSION "${PRINTED}")
    endif()
    if("${VERSION}" STREQUAL "")
        set(VERSION "unknown")
    endif()
    set(${RESULT} "${VERSION}" PARENT_SCOPE)
endfunction()

if(NOT ZEM_SQLCIPHER STREQUAL "amalgamation")
    zem_system_sqlcipher_version(SYSTEM_VERSION)
    if(NOT SYSTEM_VERSION STREQUAL "")
        if(SYSTEM_VERSION STREQUAL "unknown" OR SYSTEM_VERSION VERSION_LESS ZEM_SQLCIPHER_MINIMUM)
            message(FATAL_ERROR
                "The system's SQLCipher is version ${SYSTEM_VERSION}; ZEM needs "
                "${ZEM_SQLCIPHER_MINIMUM} or newer. Remove that development package "
                "(on Debian: apt-get remove libsqlcipher-dev), or configure with "
                "-DZEM_SQLCIPHER=amalgamation to build the pinned one that npm ci installs.")
        endif()
        message(STATUS "SQLCipher: ${SYSTEM_VERSION} of the system")
        target_link_libraries(zem_sqlcipher INTERFACE PkgConfig::SYSTEM_SQLCIPHER)
        target_compile_definitions(zem_sqlcipher INTERFACE SQLITE_HAS_CODEC)
        return()
    endif()
    if(ZEM_SQLCIPHER STREQUAL "system")
        message(FATAL_ERROR
            "No SQLCipher was found through pkg-config; ZEM needs ${ZEM_SQLCIPHER_MINIMUM} or newer. "
            "Install it, or configure with -DZEM_SQLCIPHER=amalgamation.")
    endif()
endif()

if(NOT EXISTS ${ZEM_SQLCIPHER_AMALGAMATION}/sqlite3.c)
    message(FATAL_ERROR
        "SQLCipher's amalgamation is not in ${ZEM_SQLCIPHER_AMALGAMATION}. "
        "Run tools/install-packages in ${SQLCIPHER_NPM_ROOT} first (make test does).")
endif()
message(STATUS "SQLCipher: the amalgamation in ${ZEM_SQLCIPHER_AMALGAMATION}")

# Memory and threads are watched inside SQLCipher too. Undefined behaviour is not: findings there are not
# ours to mend, and the first one would end the process.
set(SQLCIPHER_SANITIZE_FLAGS ${ZEM_SANITIZE_FLAGS})
list(TRANSFORM SQLCIPHER_SANITIZE_FLAGS REPLACE ",undefined|undefined," "")
list(REMOVE_ITEM SQLCIPHER_SANITIZE_FLAGS
    -fsanitize=undefined -fno-sanitize-recover=undefined -fno-sanitize=vptr)
set(SQLCIPHER_FLAGS -O2 -g1 -fPIC -fvisibility=hidden -w
    -D_GNU_SOURCE -DHAVE_STDINT_H=1 -DHAVE_USLEEP=1
    -DSQLITE_HAS_CODEC -DSQLITE_TEMP_STORE=2 -DSQLITE_THREADSAFE=1
    -DSQLCIPHER_CRYPTO_OPENSSL
    # Failures reach the caller; its own lines on standard error would reach the application's users.
    -DSQLCIPHER_OMIT_DEFAULT_LOGGING
    -DSQLITE_EXTRA_INIT=sqlcipher_extra_init -DSQLITE_EXTRA_SHUTDOWN=sqlcipher_extra_shutdown
    ${SQLCIPHER_SANITIZE_FLAGS})

set(CACHE_ROOT "$ENV{XDG_CACHE_HOME}")
if(CACHE_ROOT STREQUAL "" AND NOT "$ENV{HOME}" STREQUAL "")
    set(CACHE_ROOT "$ENV{HOME}/.cache")
elseif(CACHE_ROOT STREQUAL "")
    set(CACHE_ROOT ${CMAKE_CURRENT_BINARY_DIR})
endif()
set(ZEM_CACHE_DIR "${CACHE_ROOT}/zem" CACHE PATH "Where compiled dependencies are kept between builds")
file(SHA256 ${ZEM_SQLCIPHER_AMALGAMATION}/sqlite3.c SOURCE_HASH)
string(SHA256 CACHE_KEY
    "${SOURCE_HASH} ${CMAKE_C_COMPILER_ID} ${CMAKE_C_COMPILER_VERSION} ${CMAKE_SYSTEM_PROCESSOR} ${SQLCIPHER_FLAGS}")
string(SUBSTRING ${CACHE_KEY} 0 16 CACHE_KEY)

# The object is an output of this build, not of the cache: a build tool takes an output that it has
# no record of for stale, and a fresh build folder would compile what the cache holds.
set(SQLCIPHER_OBJECT ${CMAKE_CURRENT_BINARY_DIR}/sqlcipher-${CACHE_KEY}.o)
add_custom_command(OUTPUT ${SQLCIPHER_OBJECT}
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${SQLCIPHER_OBJECT} -DCACHE_DIR=${ZEM_CACHE_DIR}
        -P ${CMAKE_CURRENT_LIST_DIR}/CompileOnce.cmake
        -- ${CMAKE_C_COMPILER} ${SQLCIPHER_FLAGS} -c ${ZEM_SQLCIPHER_AMALGAMATION}/sqlite3.c
    DEPENDS ${CMAKE_CURRENT_LIST_DIR}/CompileOnce.cmake
    COMMENT "SQLCipher, kept in ${ZEM_CACHE_DIR}"
    VERBATIM)
add_library(zem_sqlcipher_amalgamation STATIC ${SQLCIPHER_OBJECT})
set_target_properties(zem_sqlcipher_amalgamation PROPERTIES LINKER_LANGUAGE C)

find_package(OpenSSL REQUIRED)
target_include_directories(zem_sqlcipher SYSTEM INTERFACE ${ZEM_SQLCIPHER_AMALGAMATION})
target_compile_definitions(zem_sqlcipher INTERFACE SQLITE_HAS_CODEC)
target_link_libraries(zem_sqlcipher INTERFACE
    zem_sqlcipher_amalgamation OpenSSL::Crypto Threads::Threads ${CMAKE_DL_LIBS} m)
