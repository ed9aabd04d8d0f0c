# Warnings, sanitizers and the link flags of every target of the project.
option(VLT_WERROR "Treat warnings as errors" ON)
set(VLT_SANITIZE "" CACHE STRING "Sanitizers, as for -fsanitize=")

add_library(vlt_options INTERFACE)
target_compile_options(vlt_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${VLT_WERROR}>:-Werror>)
if(VLT_SANITIZE)
    # Little optimisation and line numbers alone: more would double the time of the build.
    add_compile_options(-fsanitize=${VLT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -O1 -g1)
    add_link_options(-fsanitize=${VLT_SANITIZE})
endif()
if(WIN32)
    # Only system DLLs are needed at run time, and two builds of one source are the same bytes.
    add_link_options(-static -Wl,--no-insert-timestamp)
    add_compile_definitions(_WIN32_WINNT=0x0A00 WINVER=0x0A00)
else()
    find_package(Threads REQUIRED)
    add_link_options(-Wl,--no-undefined -Wl,--as-needed)
endif()
