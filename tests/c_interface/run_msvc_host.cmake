# Compiles, links and runs msvc_host.c as a user of MSVC would, with the import library in MSVC's form.
foreach(tool clang lld-link llvm-dlltool)
    find_program(${tool} NAMES ${tool} ${tool}-19 ${tool}-16 ${tool}-14)
    if(NOT ${tool})
        message("${tool} is not available")
        return()
    endif()
endforeach()
if(NOT ENGINE_IMPORT_LIBRARY)
    message("The import library is not available: the build found no llvm-dlltool")
    return()
endif()

set(folder ${ENGINE_BUILD_DIR}/msvc_host_test)
file(REMOVE_RECURSE ${folder})
file(MAKE_DIRECTORY ${folder})
file(WRITE ${folder}/kernel32.def "LIBRARY kernel32.dll\nEXPORTS\n    GetCurrentDirectoryA\n    ExitProcess\n")
file(COPY ${ENGINE_DLL} DESTINATION ${folder})

function(run)
    execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${folder} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

run(${clang} --target=x86_64-pc-windows-msvc -std=c99 -pedantic -Wall -Wextra -Werror -ffreestanding -O1
    -I ${ENGINE_SOURCE_DIR}/include -c ${ENGINE_SOURCE_DIR}/tests/c_interface/msvc_host.c -o host.obj)
run(${llvm-dlltool} -m i386:x86-64 -d kernel32.def -l kernel32.lib)
run(${lld-link} /nodefaultlib /entry:start /subsystem:console /out:host.exe host.obj ${ENGINE_IMPORT_LIBRARY} kernel32.lib)
run(${ENGINE_EMULATOR} ./host.exe)
