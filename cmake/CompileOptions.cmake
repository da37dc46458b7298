# Flags of every target. Each room links `padtune_options` and includes headers by their path from the
# source root ("lib/platform/assertion.h"), so that an include line shows which floor it reaches down to.

# Without NDEBUG: the assertions of the libraries' headers stay in force, as our own do.
set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O2 -g")
if(PADTUNE_SANITIZE AND NOT PADTUNE_SANITIZE MATCHES fuzzer) # builds sooner, and reports have lines all the same
    set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1")
else()
    set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g")
endif()

add_library(padtune_options INTERFACE)
target_include_directories(padtune_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(padtune_options INTERFACE
    -Wall -Wextra -Werror -Wshadow -Wnon-virtual-dtor -Wformat=2 -Wundef
    # Reports name sources relative to the tree, whatever folder it was built in.
    -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
target_link_libraries(padtune_options INTERFACE Threads::Threads)

# Against faults that got through all else: what overruns a buffer or jumps to the wrong place ends the process.
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
target_compile_options(padtune_options INTERFACE -fstack-protector-strong -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL aarch64)
    target_compile_options(padtune_options INTERFACE -mbranch-protection=standard)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL x86_64)
    target_compile_options(padtune_options INTERFACE -fcf-protection)
endif()
target_link_options(padtune_options INTERFACE LINKER:-z,relro,-z,now)

# The property IS_TEST of a target: it is compiled soon rather than well. Tests spend their time in what they test, and
# the compiler would spend half of its own on them. Without optimising there is no fortifying.
set(isTest $<BOOL:$<TARGET_PROPERTY:IS_TEST>>)
target_compile_options(padtune_options INTERFACE $<${isTest}:-O0> $<${isTest}:-g1>)
if(NOT PADTUNE_SANITIZE) # the sanitizers do without: they see the calls themselves
    target_compile_options(padtune_options INTERFACE $<$<NOT:${isTest}>:-D_FORTIFY_SOURCE=2>)
endif()

if(PADTUNE_SANITIZE)
    # Their checks lead GCC to see uninitialised members where there are none, in std::regex for example.
    target_compile_options(padtune_options INTERFACE
        -fsanitize=${PADTUNE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
        $<$<CXX_COMPILER_ID:GNU>:-Wno-error=maybe-uninitialized>)
    target_link_options(padtune_options INTERFACE -fsanitize=${PADTUNE_SANITIZE})
endif()

if(PADTUNE_COVERAGE)
    # The counters lead GCC to see uninitialised members where there are none.
    target_compile_options(padtune_options INTERFACE
        --coverage -fprofile-update=atomic -Wno-error=maybe-uninitialized)
    target_link_options(padtune_options INTERFACE --coverage)
endif()
