# vlt_seh_sources(target file.c...): compiles C files that hold __try/__except with clang, the only
# compiler for this target that knows them, and links the objects into the target. Such a file holds
# nothing else; GCC compiles the rest.
find_program(VLT_CLANG NAMES clang clang-14 REQUIRED)

function(vlt_seh_sources target)
    set(objects)
    foreach(file ${ARGN})
        set(source ${CMAKE_CURRENT_SOURCE_DIR}/${file})
        set(object ${CMAKE_CURRENT_BINARY_DIR}/${file}.obj)
        add_custom_command(OUTPUT ${object}
            COMMAND ${VLT_CLANG} --target=x86_64-w64-mingw32 --sysroot=/usr/x86_64-w64-mingw32
                -std=c11 -O2 -g -Wall -Wextra -Werror -fms-extensions
                -I${CMAKE_SOURCE_DIR} -MD -MF ${object}.d -c ${source} -o ${object}
            DEPENDS ${source}
            DEPFILE ${object}.d
            COMMENT "Building ${file} with clang"
            VERBATIM)
        list(APPEND objects ${object})
    endforeach()
    # The target may be of another folder, which does not see this folder's rules.
    add_custom_target(${target}_seh DEPENDS ${objects})
    add_dependencies(${target} ${target}_seh)
    target_sources(${target} PRIVATE ${objects})
    set_source_files_properties(${objects} TARGET_DIRECTORY ${target}
        PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
endfunction()
