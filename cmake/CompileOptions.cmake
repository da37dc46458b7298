# Flags of every target. Each room links `padtune_options` and includes headers by their path from the
# source root ("lib/platform/assertion.h"), so that an include line shows which floor it reaches down to.

# Without NDEBUG: the assertions of the libraries' headers stay in force, as our own do.
set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O2 -g")
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g")

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

add_library(padtune_options INTERFACE)
target_include_directories(padtune_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(padtune_options INTERFACE
    -Wall -Wextra -Werror -Wshadow -Wnon-virtual-dtor -Wformat=2 -Wundef
    # Reports name sources relative to the tree, whatever folder it was built in.
    -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
target_link_libraries(padtune_options INTERFACE Threads::Threads)

if(PADTUNE_SANITIZE)
    target_compile_options(padtune_options INTERFACE
        -fsanitize=${PADTUNE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(padtune_options INTERFACE -fsanitize=${PADTUNE_SANITIZE})
endif()

if(PADTUNE_COVERAGE)
    # The counters lead GCC to see uninitialised members where there are none.
    target_compile_options(padtune_options INTERFACE
        --coverage -fprofile-update=atomic -Wno-error=maybe-uninitialized)
    target_link_options(padtune_options INTERFACE --coverage)
endif()
