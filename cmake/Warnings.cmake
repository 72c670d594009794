# One interface target carries what every target of ours is compiled with: warnings and sanitizers.
add_library(zem_options INTERFACE)
target_compile_options(zem_options INTERFACE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor
    -Woverloaded-virtual -Wconversion
    # A constructor's parameters bear the names of the fields that they fill.
    $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>)
if(ZEM_WARNINGS_AS_ERRORS)
    target_compile_options(zem_options INTERFACE -Werror)
endif()
if(ZEM_SANITIZE)
    set(ZEM_SANITIZE_FLAGS -fsanitize=${ZEM_SANITIZE} -fno-omit-frame-pointer)
    if(ZEM_SANITIZE MATCHES "undefined")
        # The engine is built without type information, and where its inline functions and ours are the
        # same (the standard library's shared pointers), the linker lets it call ours: a check of its
        # objects' types finds none.
        list(APPEND ZEM_SANITIZE_FLAGS -fno-sanitize-recover=undefined -fno-sanitize=vptr)
    endif()
    if(ZEM_SANITIZE MATCHES "address")
        # The engine's collector finds values by scanning the real stack; a fake stack hides them.
        list(APPEND ZEM_SANITIZE_FLAGS -fsanitize-address-use-after-return=never)
    endif()
    target_compile_options(zem_options INTERFACE ${ZEM_SANITIZE_FLAGS})
    target_link_options(zem_options INTERFACE ${ZEM_SANITIZE_FLAGS})
endif()
